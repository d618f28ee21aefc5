// SPDX-License-Identifier: BSD-3-Clause
#include <array>

#include "solver.hpp"
#include "velmora.h"

namespace bench {

namespace {

class Velmora final : public Solver {
 public:
  Velmora(const Problem& problem, const Settings& settings)
      : m_(problem.matrix), scratch_(static_cast<std::size_t>(m_.n)) {
    int solver = 0, error = 0;
    iparm(3) = settings.threads;
    velmorainit(pt_.data(), &m_.mtype, &solver, iparm_.data(), dparm_.data(), &error);
    if (problem.hard) {
      iparm(11) = 1;
      iparm(13) = 2;
      iparm(21) = 1;
    }
    for (const auto& [entry, value] : settings.iparm) iparm(entry) = value;
    refinement_ = iparm(8);
  }
  ~Velmora() override { call(-1, nullptr, nullptr, 1, false); }

  void analyse() override { call(11, nullptr, nullptr, 1); }
  void factor() override { call(22, nullptr, nullptr, 1); }
  void solve(const double* b, double* x, int nrhs) override {
    iparm(8) = refinement_;
    call(33, b, x, nrhs);
  }
  void sweep(const double* b, double* x, int nrhs) override {
    if (iparm(14) == 0) {
      iparm(8) = 0;
      call(33, b, x, nrhs);
      return;
    }
    // Perturbed pivots would bring refinement; the two halves never do.
    half_.resize(static_cast<std::size_t>(m_.n) * m_.nvals() * nrhs);
    iparm(26) = 1;
    call(33, b, half_.data(), nrhs);
    iparm(26) = 2;
    call(33, half_.data(), x, nrhs);
    iparm(26) = 0;
  }
  double factor_entries() const override {
    const double count = iparm_[17];
    return count < 0 ? -1000 * count : count;
  }
  double gflop() const override { return iparm_[18]; }

 private:
  int& iparm(int k) { return iparm_[k - 1]; }
  void call(int phase, const double* b, double* x, int nrhs, bool check = true) {
    int one = 1, message = 0, error = 0;
    velmora(pt_.data(), &one, &one, &m_.mtype, &phase, &m_.n, m_.a.data(), m_.ia.data(),
            m_.ja.data(), scratch_.data(), &nrhs, iparm_.data(), &message, const_cast<double*>(b),
            x, &error, dparm_.data());
    if (check && error != 0)
      throw std::runtime_error("phase " + std::to_string(phase) + " gives error " +
                               std::to_string(error));
  }

  const Matrix& m_;
  std::vector<int> scratch_;
  std::vector<double> half_;
  std::array<void*, 64> pt_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
  int refinement_ = 0;
};

}  // namespace

std::unique_ptr<Solver> make_velmora(const Problem& problem, const Settings& settings) {
  return std::make_unique<Velmora>(problem, settings);
}

}  // namespace bench
