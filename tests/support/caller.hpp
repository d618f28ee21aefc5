// SPDX-License-Identifier: BSD-3-Clause
/// The arguments of velmora() as a caller holds them, each open to be set wrong.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <string>
#include <vector>

#include "velmora.h"

namespace vlm::test {

struct Caller {
  std::array<void*, 64> handle{};
  std::array<int, 64> iparm_array{};
  std::array<double, 64> dparm{};
  std::vector<int> ia, ja, perm;
  std::vector<double> a, b, x;
  int maxfct = 1, mnum = 1, mtype = -2, n = 0, nrhs = 1, msglvl = 0, error = 0;
  // What is passed; a test may null it.
  void** pt = handle.data();
  const double* a_ptr = nullptr;
  const int *ia_ptr = nullptr, *ja_ptr = nullptr;
  int* perm_ptr = nullptr;
  double *b_ptr = nullptr, *x_ptr = nullptr;

  Caller(int type, std::vector<int> rows, std::vector<int> columns, std::vector<double> values)
      : ia(std::move(rows)), ja(std::move(columns)), a(std::move(values)), mtype(type) {
    n = static_cast<int>(ia.size()) - 1;
    const std::size_t length = 2 * ia.size();
    perm.resize(length);
    b.assign(2 * length, 1.0);
    x.assign(2 * length, -77.0);
    a_ptr = a.data();
    ia_ptr = ia.data();
    ja_ptr = ja.data();
    perm_ptr = perm.data();
    b_ptr = b.data();
    x_ptr = x.data();
    init();
  }
  ~Caller() {
    if (pt == nullptr) return;
    msglvl = 0;
    run(-1);
  }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  int& iparm(int k) { return iparm_array[static_cast<std::size_t>(k - 1)]; }
  void init(int solver = 0) {
    iparm(3) = 1;
    velmorainit(handle.data(), &mtype, &solver, iparm_array.data(), dparm.data(), &error);
  }
  int run(int phase) {
    velmora(pt, &maxfct, &mnum, &mtype, &phase, &n, a_ptr, ia_ptr, ja_ptr, perm_ptr, &nrhs,
            iparm_array.data(), &msglvl, b_ptr, x_ptr, &error, dparm.data());
    return error;
  }
  /// Runs with messages on; what was printed on standard output.
  std::string run_and_read(int phase) {
    msglvl = 1;
    ::testing::internal::CaptureStdout();
    run(phase);
    msglvl = 0;
    return ::testing::internal::GetCapturedStdout();
  }
  bool empty() const {
    for (const void* word : handle)
      if (word != nullptr) return false;
    return true;
  }
};

/// Tridiagonal matrix (-1, 4, -1) of a type: the upper triangle, or all of it.
inline Caller make_tridiagonal(int n, int mtype) {
  const bool triangle = mtype % 2 == 0;
  const bool complex = mtype == 3 || mtype == 4 || mtype == -4 || mtype == 6 || mtype == 13;
  std::vector<int> ia{1}, ja;
  std::vector<double> a;
  const auto add = [&](int j, double v) {
    if (j < 1 || j > n) return;
    ja.push_back(j);
    a.push_back(v);
    if (complex) a.push_back(0);
  };
  for (int i = 1; i <= n; ++i) {
    if (!triangle) add(i - 1, -1);
    add(i, 4);
    add(i + 1, -1);
    ia.push_back(static_cast<int>(ja.size()) + 1);
  }
  return Caller(mtype, std::move(ia), std::move(ja), std::move(a));
}

/// Limits the addresses of this process, by default to 100 GB, so that a larger allocation fails
/// at once.
class LimitedMemory {
 public:
  explicit LimitedMemory(std::size_t bytes = std::size_t{100} << 30) {
    getrlimit(RLIMIT_AS, &before_);
    const rlimit lowered{bytes, before_.rlim_max};
    setrlimit(RLIMIT_AS, &lowered);
  }
  ~LimitedMemory() { setrlimit(RLIMIT_AS, &before_); }
  LimitedMemory(const LimitedMemory&) = delete;
  LimitedMemory& operator=(const LimitedMemory&) = delete;

 private:
  rlimit before_{};
};

}  // namespace vlm::test
