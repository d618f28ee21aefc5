// SPDX-License-Identifier: BSD-3-Clause
#include "session.hpp"

#include <algorithm>

#include "velmora.h"

namespace vlm::test {

Session::Session(const Matrix& m, int threads)
    : perm(static_cast<std::size_t>(m.n), 0), matrix_(&m) {
  const int solver = 0;
  iparm(3) = threads;
  ::velmorainit(pt_.data(), &m.mtype, &solver, iparm_.data(), dparm_.data(), &error);
}

Session::~Session() { run(-1); }

int Session::run(int phase, double* b, double* x, int nrhs) {
  const Matrix& m = *matrix_;
  ::velmora(pt_.data(), &maxfct, &mnum, &m.mtype, &phase, &m.n, m.a.data(), m.ia.data(),
            m.ja.data(), perm.data(), &nrhs, iparm_.data(), &msglvl, b, x, &error, dparm_.data());
  return error;
}

std::vector<double> Session::solve(const std::vector<double>& b, int nrhs, int phase) {
  std::vector<double> rhs = b, x(b.size());
  run(phase, rhs.data(), x.data(), nrhs);
  return iparm(6) == 1 ? rhs : x;
}

Session::Schur Session::schur() {
  const auto entries = static_cast<std::size_t>(iparm(39));
  const auto rows = static_cast<std::size_t>(matrix_->n - iparm(38));
  const auto values = entries * static_cast<std::size_t>(matrix_->nvals());
  Schur s{std::vector<int>(rows + 1), std::vector<int>(entries), std::vector<double>(values)};
  ::velmora_schur(pt_.data(), &maxfct, &mnum, &matrix_->mtype, s.a.data(), s.ia.data(),
                  s.ja.data());
  return s;
}

bool Session::empty() const {
  return std::all_of(pt_.begin(), pt_.end(), [](const void* word) { return word == nullptr; });
}

}  // namespace vlm::test
