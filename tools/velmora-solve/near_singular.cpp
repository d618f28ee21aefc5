// SPDX-License-Identifier: BSD-3-Clause
#include "near_singular.hpp"

#include <algorithm>
#include <cmath>
#include <random>

#include "session.hpp"

namespace tool {
namespace {

double norm(const std::vector<double>& v) {
  double most = 0, sum = 0;
  for (const double entry : v) most = std::max(most, std::abs(entry));
  if (most == 0 || !std::isfinite(most)) return most;
  for (const double entry : v) sum += entry / most * (entry / most);
  return most * std::sqrt(sum);
}

/// Of a matrix stored as a triangle the longest part of a column that is stored.
double longest_column(const SparseMatrix& matrix) {
  const std::ptrdiff_t doubles = matrix.complex ? 2 : 1;
  double most = 0;
  for (std::size_t i = 0; i < static_cast<std::size_t>(matrix.n); ++i) {
    const auto first = matrix.a.begin() + doubles * (matrix.ia[i] - 1);
    most = std::max(most, norm({first, first + doubles * (matrix.ia[i + 1] - matrix.ia[i])}));
  }
  return most;
}

}  // namespace

bool is_near_singular(const SparseMatrix& matrix, int mtype, int threads) {
  constexpr double small = 1e-14;
  Settings settings;
  settings.threads = threads;
  settings.pivoting = 1;
  settings.matching = settings.scaling = 0;
  settings.perturbation = 17;
  settings.refinement = 0;
  const bool definite = mtype == 2 || mtype == 4;  // its factor may not exist
  Session session(matrix, definite ? -mtype : mtype, settings, false);
  std::mt19937_64 bits(1);
  std::vector<double> v(static_cast<std::size_t>(matrix.n) * (matrix.complex ? 2 : 1));
  for (double& entry : v) entry = static_cast<double>(bits() >> 10) * 0x1p-53 - 1;
  session.set_rhs(v, 1);
  if (session.run(Phase::analysis).error != 0 || session.run(Phase::factorization).error != 0)
    return false;
  for (int step = 0; step < 2; ++step) {
    if (session.run(Phase::solution).error != 0) return false;
    v = session.x();
    const double size = norm(v);
    if (!(size > 0) || !std::isfinite(size)) return false;
    for (double& entry : v) entry /= size;
    if (norm(multiply(matrix, false, v)) <= small * longest_column(matrix)) return true;
    session.set_rhs(v, 1);
  }
  return false;
}

}  // namespace tool
