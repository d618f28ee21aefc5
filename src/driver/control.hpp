// SPDX-License-Identifier: BSD-3-Clause
/// The records behind the handle `pt`: options, results, state of the store, factor table.
///
/// The driver (velmora_c) owns them; no stage sees them.  Each stage is given an options record
/// of its own, made from Options, and returns a result.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/options.hpp"
#include "driver/sequence.hpp"
#include "solve/first_guess.hpp"
#include "solve/rescale.hpp"

namespace vlm {

/// What a solve that is not good enough goes on to, iparm(43); see ladder.hpp.
enum Rung : int {
  rung_plain = 0,        ///< the solve as asked for
  rung_rows = 1,         ///< refinement that looks at every row
  rung_krylov = 2,       ///< Krylov refinement
  rung_double = 3,       ///< the same settings, in double precision, values of the call
  rung_robust = 4,       ///< matching, scaling, 2x2 pivots, small perturbation
  rung_unmatched = 5,    ///< the same without matching
  rung_order = 6,        ///< the same with another order
  rung_unsymmetric = 7,  ///< the unsymmetric type
  rung_free = 8,         ///< the unsymmetric type with free pivots
  rung_perturbed = 9,    ///< large perturbation, many steps
  rung_count
};

/// The rungs that a solve took.
struct Ladder {
  struct Step {
    Rung rung = rung_plain;
    double error = 0;  ///< componentwise backward error after it; infinite where it gave none
  };
  int count = 0;
  Step taken[rung_count + 1];
  Rung kept = rung_plain;  ///< that gave the solution
};

class SecondFactor;

/// What the stages found.
struct Results {
  FactorFigures figures;
  int ordered_nodes = 0;      ///< vertices that the ordering worked on
  FactorResult factor;        ///< of the factor in use
  double factor_seconds = 0;  ///< time that it took
  int refinement_steps = 0;   ///< of the last solve
  Accuracy accuracy;          ///< of the last solve that measured it
  Ladder ladder;              ///< of the last solve that may take one
};

/// Wall-clock seconds of the phases, in the order of the report; negative: did not run.
struct Timers {
  double fulladj = -1, reorder = -1, symbfct = -1, parlist = -1, a_to_lu = -1;
  double numfct = -1, solve = -1, cgs = -1, malloc = -1, total = -1;
};

/// Times of the running call.
struct Clocks {
  Timers timer;
  double start = 0;      ///< entry of the call
  double stage_end = 0;  ///< end of the last stage; 0 before the first
};

/// Memory figures, KB: iparm(15) to iparm(17).
struct MemoryFigures {
  std::int64_t peak = 0, permanent = 0, numeric = 0;
};

/// Control record, `BASIC`: pt(2).
struct Control {
  Options options;
  Results results;
  MemoryFigures memory;
  std::uint64_t pattern = 0;   ///< checksum of the analysed ia and ja
  int nrecords = 0;            ///< length of the factor table
  std::size_t work_bytes = 0;  ///< of WORK_R0
  std::size_t cgs_bytes = 0;   ///< of CGS_ARR in the last solve that took it
  std::size_t cgs_held = 0;    ///< of CGS_ARR as it stays between solves
  Clocks clocks;
};

/// One record of the factor table, `FACT_ADR`: pt(4).
struct FactorRecord {
  void* lu = nullptr;     ///< FACT_L&U
  std::size_t bytes = 0;  ///< size of lu
  bool finished = false;  ///< lu holds a factor
  // what the factor is; a solve with other settings needs another one
  int mtype = 0;
  bool single = false;
  std::uint64_t values = 0;  ///< checksum of the values it was made of
  FactorResult result;
  double seconds = 0;  ///< time of the factorization
  ReuseHistory history;
  EarlierSolutions* earlier = nullptr;  ///< of stabilised solves; owned
  RowSizes* sizes = nullptr;            ///< of the factored matrix, for the same; owned
  bool inverted = false;                ///< lu holds the selected inverse, and no factor
  std::uint64_t inverse_values = 0;     ///< checksum of the inverse in the caller's a; 0: none
  SecondFactor* second = nullptr;  ///< the factor of a rung that helped where lu did not; owned
  Rung rung = rung_plain;          ///< that rung, also of the factorization before
};

}  // namespace vlm
