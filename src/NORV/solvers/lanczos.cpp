// SPDX-License-Identifier: BSD-3-Clause
/// How MINRES and SYMMLQ end, see lanczos.hpp.
#include "NORV/solvers/lanczos.hpp"

namespace vlm {

int finish_lanczos(const char* name, const char* const (&texts)[10], LanczosEnd end, KrylovRun& run,
                   int iterations, const LanczosNorms& norms) {
  run.end = end == LanczosEnd::limit                ? KrylovEnd::limit
            : end <= LanczosEnd::as_rounding_allows ? KrylovEnd::solved
                                                    : KrylovEnd::breakdown;
  _norv_print_stat_msg(" %s: %s.", name, texts[static_cast<int>(end) + 1]);
  _norv_print_stat_msg("A_norm: %e, A_cond: %e", norms.A, norms.condition);
  _norv_print_stat_msg("r_norm: %e, y_norm: %e", norms.r, norms.y);
  return run.finish(iterations).iterations;
}

}  // namespace vlm
