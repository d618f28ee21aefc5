// SPDX-License-Identifier: BSD-3-Clause
/// Drives the public entry point for tests: one handle with its control vectors.
#pragma once

#include <array>
#include <vector>

#include "gallery.hpp"

namespace vlm::test {

/// A handle and the arguments that go with it.  The destructor releases everything.
///
/// The matrix is not copied and must outlive the session; use() replaces it, for example by one
/// with other values.  Every call returns the error code and stores it in `error`.
class Session {
 public:
  /// Sets the defaults of the matrix's type; no output, `threads` threads.
  explicit Session(const Matrix& m, int threads = 1);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  int& iparm(int k) { return iparm_[k - 1]; }
  double& dparm(int k) { return dparm_[k - 1]; }
  void use(const Matrix& m) { matrix_ = &m; }

  /// Runs a phase with the given right-hand sides.
  int run(int phase, double* b = nullptr, double* x = nullptr, int nrhs = 1);
  int analyse() { return run(11); }
  int factor() { return run(22); }
  /// Phase 33; the solution, n by nrhs.  b is passed as a copy.
  std::vector<double> solve(const std::vector<double>& b, int nrhs = 1, int phase = 33);
  /// Schur complement of a factor made with iparm(38): row starts, columns, values.
  struct Schur {
    std::vector<int> ia, ja;
    std::vector<double> a;
  };
  Schur schur();
  void** handle() { return pt_.data(); }
  /// True when all words of the handle are zero.
  bool empty() const;

  int maxfct = 1, mnum = 1, msglvl = 0;
  std::vector<int> perm;  ///< [n]
  int error = 0;

 private:
  const Matrix* matrix_;
  std::array<void*, 64> pt_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
};

}  // namespace vlm::test
