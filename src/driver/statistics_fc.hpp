// SPDX-License-Identifier: BSD-3-Clause
/// The text report that closes a call, and the arithmetic of the call's timers.
#pragma once

#include <omp.h>

#include "driver/control.hpp"

namespace vlm {

/// Wall clock in seconds, from an origin that stays the same within the process.
inline double timer_velmora() { return omp_get_wtime(); }

/// What the report says about the call itself; all else it reads from the control record.
struct StatisticsCall {
  int phase = 0;
  int mtype = 0;
  int n = 0, nnz = 0;  ///< matrix of the call; 0 where the call failed before it was read
  int nrhs = 0;
  int mnum = 0;           ///< matrix number, named when its factor was released
  int cg_iterations = 0;  ///< iparm(20)
  int deleted = 0;        ///< phase < 1: 1 when the factor of mnum was released,
                          ///< otherwise the negated number of released factors
  int local_separators = 0, global_separators = 0;  ///< nodes, printed in distributed mode
};

/// Closes the timers of a call; runs for silent calls too.
///
/// The total is the time since Clocks::start.  Time since the end of the last stage counts as
/// allocation; a stage end from before the start belongs to an earlier call and is ignored.
/// Sets the flag of the total; the malloc flag is left to the code that allocated.
void finish_timers(Control& control);

/// Prints "VELMORA: solving a ... system" between rules when msg is not 0.
void print_info_velmora(int msg, int mtype);

/// Prints the report to standard output when control.msg is not 0; after a failure with the
/// fields known so far.  The timers must be closed.
void statistics_fc(const Control& control, const StatisticsCall& call);

}  // namespace vlm
