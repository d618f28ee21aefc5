// SPDX-License-Identifier: BSD-3-Clause
/// Multigrid by smoothed aggregation, and the modes of elastic bodies.
#include <algorithm>
#include <cmath>

#include "NORV/multilevel/aggregation.hpp"
#include "NORV/multilevel/record.hpp"
#include "base/clock.hpp"

namespace {

using namespace vlm;
using namespace vlm::norv;

/// The caller's modes, or one that is constant for each unknown of a block.
template <class T>
Modes<T> first_modes(const aml_level& record, unsigned n, int block_size) {
  Modes<T> modes;
  const bool given = record.mode_count > 0;
  if (given) NORV_ASSERT_TEXT(record.mode_n == n, "modes->n == A->n");
  modes.count = given ? record.mode_count : block_size;
  const auto count = static_cast<std::size_t>(modes.count);
  modes.values.assign(n * count, T());
  for (std::size_t i = 0; i < n; ++i) {
    if (!given) modes.values[i * count + i % count] = T(1);
    for (std::size_t c = 0; given && c < count; ++c)
      modes.values[i * count + c] = T(record.modes[c * n + i]);
  }
  return modes;
}

template <class T>
void build(const aml* h, Hierarchy<T>& levels, int block_size) {
  const aml_params& params = h->params;
  Modes<T> modes = first_modes<T>(*h->levels, levels.coarsest()->n, block_size);
  while (goes_on(h, levels)) {
    double seconds = 0;
    {
      const Stopwatch watch(seconds);
      smat* const A = levels.coarsest();
      // A block's diagonal entry holds the couplings of all its components.
      constexpr double of_blocks = 0.1;
      const double threshold = (block_size > 1 ? of_blocks : 1.0) * params.sparsify_base *
                               std::pow(params.sparsify_fact, levels.levels() - 1);
      Transfer<T> transfer;
      {
        const OwnSmat condensed(block_size > 1
                                    ? smat_block_condense_max(A, static_cast<unsigned>(block_size))
                                    : nullptr);
        const StrongNodes<T> strong(rows<T>(condensed ? condensed.get() : A), threshold);
        const Aggregates aggregates = aggregate_vmb(strong);
        const std::int64_t coarse = std::int64_t{aggregates.count} * modes.count;
        if (coarse == 0 || coarse >= A->m) break;
        transfer.P = smoothed_prolongation(
            A, strong, aggregates, {.block_size = block_size, .omega = params.omega}, modes);
      }
      transfer.R.reset(smat_copy_trans(transfer.P.get()));
      transfer.coarse = coarse_matrix(transfer.R.get(), A, transfer.P.get());
      levels.add_level(std::move(transfer));
      block_size = modes.count;
    }
    _norv_print_stat_msg("Coarse level setup took %f secs.", seconds);
  }
}

}  // namespace

aml* smaggr_new(void) { return new_record(5, 10000, default_params(Smoothing::gauss_seidel, 2)); }

int smaggr_setup_matrix(aml* h, smat* A, int block_size) {
  NORV_ASSERT(h != 0);
  NORV_ASSERT(A != 0);
  if (block_size < 1 || A->n % static_cast<unsigned>(block_size) != 0) block_size = 1;
  const double square = static_cast<double>(A->m) * A->n;
  _norv_print_stat_msg("Setting up SMAGGR hierarchy,  bs: %d,  dim (%dx%d),  nnz: %d (%.2f%%)...",
                       block_size, static_cast<int>(A->m), static_cast<int>(A->n),
                       static_cast<int>(A->nnz), square > 0 ? 100.0 * A->nnz / square : 0.0);
  set_up(h, A, always_smoothing(h->params), [&](auto& levels) { build(h, levels, block_size); });
  print_summary(h);
  return 1;
}

int smaggr_solve(aml* h, vec* x, const vec* b, double epsilon, int maxiter) {
  return iterate(h, x, b, epsilon, maxiter,
                 {"SMAGGR", "Start solving with SMOOTHED AGGREGATION ... ", "SMAGGR"});
}

void smaggr_free(aml* h) { free_record(h); }

void smaggr_set_modes(aml* h, unsigned n, int count, const double* modes) {
  NORV_ASSERT(h != 0);
  NORV_ASSERT(count >= 0);
  NORV_ASSERT(count == 0 || modes != 0);
  guarded([&] {
    const std::size_t length = static_cast<std::size_t>(n) * static_cast<std::size_t>(count);
    h->levels->mode_count = 0;
    h->levels->modes = Vector<double>(modes, modes + length);
    h->levels->mode_n = n;
    h->levels->mode_count = count;
  });
}

int norv_rigid_body_modes(int dim, unsigned nodes, const double* coordinates, double* modes) {
  NORV_ASSERT(dim == 2 || dim == 3);
  NORV_ASSERT(coordinates != 0);
  NORV_ASSERT(modes != 0);
  const std::size_t width = static_cast<std::size_t>(dim), n = width * nodes;
  const int count = dim == 2 ? 3 : 6;
  std::fill_n(modes, n * static_cast<std::size_t>(count), 0.0);
  // Rotations about the middle of the nodes, so that their sizes are those of the body.
  double middle[3] = {0, 0, 0};
  for (std::size_t i = 0; i < n; ++i) middle[i % width] += coordinates[i] / nodes;
  for (std::size_t node = 0; node < nodes; ++node) {
    const auto at = [&](int mode, int axis) -> double& {
      return modes[static_cast<std::size_t>(mode) * n + node * width +
                   static_cast<std::size_t>(axis)];
    };
    const auto place = [&](int axis) {
      return coordinates[node * width + static_cast<std::size_t>(axis)] - middle[axis];
    };
    for (int axis = 0; axis < dim; ++axis) at(axis, axis) = 1;
    for (int mode = dim, p = 0; p < dim; ++p)
      for (int q = p + 1; q < dim; ++q, ++mode) {
        at(mode, p) = -place(q);
        at(mode, q) = place(p);
      }
  }
  return count;
}
