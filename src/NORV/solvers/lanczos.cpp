// SPDX-License-Identifier: BSD-3-Clause
/// How MINRES and SYMMLQ end, see lanczos.hpp.
#include "NORV/solvers/lanczos.hpp"

#include <cstdio>
#include <cstring>

namespace vlm {
namespace {

/// From LanczosEnd::one_vector on; what A and M are not has another verb in either method.
constexpr const char* texts[10] = {"beta2 = 0.  If M = I, b and x are eigenvectors of A",
                                   "beta1 = 0.  The exact solution is  x = 0",
                                   "Requested accuracy achieved, as determined by rtol",
                                   "Reasonable accuracy achieved, given eps",
                                   "x has converged to an eigenvector",
                                   "Acond has exceeded 0.1/eps",
                                   "The iteration limit was reached",
                                   "A %s a symmetric matrix",
                                   "M %s a symmetric matrix",
                                   "M %s a pos-def preconditioner"};

}  // namespace

int finish_lanczos(const char* name, LanczosEnd end, KrylovRun& run, int iterations,
                   const LanczosNorms& norms) {
  run.end = end == LanczosEnd::limit                ? KrylovEnd::limit
            : end <= LanczosEnd::as_rounding_allows ? KrylovEnd::solved
                                                    : KrylovEnd::breakdown;
  char text[80];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text, sizeof text, texts[static_cast<int>(end) + 1],
                std::strcmp(name, "MINRES") == 0 ? "does not define" : "is not");
#pragma GCC diagnostic pop
  _norv_print_stat_msg(" %s: %s.", name, text);
  _norv_print_stat_msg("A_norm: %e, A_cond: %e", norms.A, norms.condition);
  _norv_print_stat_msg("r_norm: %e, y_norm: %e", norms.r, norms.y);
  return run.finish(iterations).iterations;
}

}  // namespace vlm
