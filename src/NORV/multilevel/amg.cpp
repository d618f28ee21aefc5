// SPDX-License-Identifier: BSD-3-Clause
/// Classical multigrid after Ruge and Stueben: strong couplings, coarse unknowns, interpolation.
#include <cstdio>
#include <memory>

#include "NORV/multilevel/interpolation.hpp"
#include "NORV/multilevel/record.hpp"
#include "base/clock.hpp"

namespace {

using namespace vlm;
using namespace vlm::norv;

/// Weights of an interpolated unknown: enough for three dimensions, few enough for sparse levels.
constexpr int interpolation_weights = 4;

/// The condensed matrix of a level, for who asks for all messages: order and entries, then row,
/// column, value, from 0.
void save_level_mat(const smat* A, int level) {
  if (norv_debug_get_level() < 2) return;
  char name[64];
  std::snprintf(name, sizeof name, "amg_level_cond_%d.csrd", level);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name, "w"), std::fclose);
  if (!file) return _norv_print_warn_msg("Could not open %s.", name);
  std::fprintf(file.get(), "%u %u\n", A->m, A->nnz);
  by_kind(A->is_complex, [&](auto kind) {
    for_each_entry(rows<decltype(kind)>(A), [&](int i, int j, const auto& v) {
      std::fprintf(file.get(), "%d %d %.16e %.16e\n", i, j, real_part(v), imag_part(v));
    });
  });
}

/// Coarse blocks of a level, by the largest couplings between blocks.
template <class T>
Splitting split_blocks(const smat* A, int block_size, const aml_params& params, int level) {
  const OwnSmat condensed(smat_block_condense_max(A, static_cast<unsigned>(block_size)));
  save_level_mat(condensed.get(), level);
  return coarsen_rs(strong_couplings(
      rows<T>(condensed.get()),
      {.positive = params.strong_pos, .negative = params.strong_neg, .signs = false}));
}

template <class T>
void build(const aml* h, Hierarchy<T>& levels, int block_size) {
  const aml_params& params = h->params;
  while (goes_on(h, levels)) {
    double seconds = 0;
    {
      const Stopwatch watch(seconds);
      smat* const A = levels.coarsest();
      const Rows<T> R = rows<T>(A);
      Transfer<T> transfer;
      {
        const Graph strong = strong_couplings(R, {.positive = params.strong_pos,
                                                  .negative = params.strong_neg,
                                                  .components = block_size});
        const Splitting split = block_size > 1
                                    ? split_blocks<T>(A, block_size, params, levels.levels() - 1)
                                    : coarsen_rs(strong);
        const int nodes = static_cast<int>(A->m) / block_size;
        if (split.coarse == 0 || split.coarse == nodes) break;
        _norv_print_stat_msg("%s", block_size > 1 ? "AMG Block Interpolation ..."
                                                  : "Ruge/Stueben Standard Interpolation ...");
        transfer.P = extended_interpolation(R, strong, split, block_size, interpolation_weights);
      }
      transfer.R.reset(smat_copy_trans(transfer.P.get()));
      transfer.coarse = coarse_matrix(transfer.R.get(), A, transfer.P.get());
      levels.add_level(std::move(transfer));
    }
    _norv_print_stat_msg("Coarse level setup took %f secs.", seconds);
  }
}

}  // namespace

aml* amg_new(void) { return new_record(25, 500, default_params(Smoothing::gauss_seidel, 1)); }

int amg_setup_matrix(aml* h, smat* A, int block_size) {
  NORV_ASSERT(h != 0);
  NORV_ASSERT(A != 0);
  if (block_size < 1 || A->n % static_cast<unsigned>(block_size) != 0) {
    _norv_print_error_msg("Block size %d doesn't divide the order %d.", block_size,
                          static_cast<int>(A->n));
    return 0;
  }
  set_up(h, A, always_smoothing(h->params), [&](auto& levels) { build(h, levels, block_size); });
  print_summary(h);
  return 1;
}

int amg_solve(aml* h, vec* x, const vec* b, double epsilon, int maxiter) {
  return iterate(h, x, b, epsilon, maxiter, {"AMG", "Start solving AMG ... ", "AMG iteration"});
}

void amg_free(aml* h) { free_record(h); }
