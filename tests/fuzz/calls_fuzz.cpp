// SPDX-License-Identifier: BSD-3-Clause
// Calls in any sequence with any option words, on a small matrix that the checker would pass: no
// crash, no leak, and a solution that is called good is one.
#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#include "gallery.hpp"
#include "reference.hpp"
#include "velmora.h"

namespace {

using vlm::test::Matrix;

void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

/// The input, byte by byte; zeros behind its end.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}
  int next() { return at_ == end_ ? 0 : *at_++; }
  bool empty() const { return at_ == end_; }
  template <std::size_t length, class T>
  T pick(const T (&list)[length]) {
    return list[static_cast<std::size_t>(next()) % length];
  }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

constexpr int most_order = 12, most_rhs = 3;

double value(Bytes& bytes) {
  constexpr double scales[] = {1, 1, 1, 1, 1, 1, 1, 1e-3, 1e3, 1e-9, 1e9, 1e-150, 1e150};
  constexpr double rare[] = {0, std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN(), 1e308, 5e-324};
  const int kind = bytes.next();
  if (kind > 250) return rare[kind - 251];
  return (kind - 125) / 16.0 * bytes.pick(scales);
}

void fill(Bytes& bytes, Matrix& m) {
  const auto nvals = static_cast<std::size_t>(m.nvals());
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      double* a = m.a.data() + static_cast<std::size_t>(p) * nvals;
      a[0] = value(bytes);
      if (nvals == 2) a[1] = m.ja[p] - 1 == i ? 0 : value(bytes);
    }
}

/// Rows with ascending columns; every diagonal entry where the type wants one, a symmetric pattern
/// for types 1 and 3.
Matrix make_matrix(Bytes& bytes) {
  Matrix m;
  m.name = "fuzz";
  m.mtype = bytes.pick(gallery::all_mtypes);
  m.n = 1 + bytes.next() % most_order;
  std::vector<char> there(static_cast<std::size_t>(m.n * m.n), 0);
  const auto at = [&](int i, int j) -> char& {
    return there[static_cast<std::size_t>(i * m.n + j)];
  };
  const bool mirrored = m.mtype == 1 || m.mtype == 3;
  const int density = 1 + bytes.next() % 8;
  for (int i = 0; i < m.n; ++i)
    for (int j = m.triangle() || mirrored ? i : 0; j < m.n; ++j) {
      const bool needed = i == j && (m.triangle() || mirrored);
      at(i, j) = needed || bytes.next() % 8 < density;
      if (mirrored) at(j, i) = at(i, j);
    }
  m.ia = {1};
  for (int i = 0; i < m.n; ++i) {
    for (int j = 0; j < m.n; ++j)
      if (at(i, j)) m.ja.push_back(j + 1);
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  }
  m.a.resize(2 * m.ja.size() + 2);
  fill(bytes, m);
  return m;
}

class Session {
 public:
  explicit Session(Bytes& bytes) : bytes_(bytes), m_(make_matrix(bytes)) {
    const auto values = static_cast<std::size_t>(2 * m_.n * most_rhs);
    b_.resize(values);
    x_.resize(values);
    for (int k = 0; k < m_.n; ++k) perm_.push_back(bytes.next() % (m_.n + 1));
    perm_.resize(2 * perm_.size());  // iparm(5) -2 writes two permutations
    for (double& b : b_) b = (bytes.next() - 128) / 8.0;
    const int start = bytes.next(), solver = start >= 208 ? 1 : 0;
    int error = 0;
    iparm(3) = 1;
    if (start % 8 != 0)
      velmorainit(pt_.data(), &m_.mtype, &solver, iparm_.data(), dparm_.data(), &error);
    iparm(40) = 2;
  }
  ~Session() {
    iparm(32) = 0;
    msglvl_ = 0;
    call(-1);
    for (const void* word : pt_) require(word == nullptr, "a released handle is empty");
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void step() {
    constexpr int phases[] = {11, 12, 13, 22, 23, 33, 13, 33, 0, -1, 14, 21, 44, -10};
    const int choice = bytes_.next();
    if (choice >= 248) return choice % 2 == 0 ? invert() : set_real();
    switch (choice % 8) {
      case 0:
      case 1:
        set_option();
        break;
      case 2:
        fill(bytes_, m_);
        break;
      case 3:
        nrhs_ = bytes_.next() % (most_rhs + 2) - 1;
        break;
      case 4:
        set_scalar();
        break;
      case 5:
        missing_ = 1 << bytes_.next() % 7;
        break;
      default:
        run(bytes_.pick(phases));
        break;
    }
  }

 private:
  int& iparm(int k) { return iparm_[static_cast<std::size_t>(k - 1)]; }

  void set_option() {
    constexpr int values[] = {
        std::numeric_limits<int>::min(), -10, -2, -1, 0, 1, 2, 3, 4, 8, 10, 13, 61, 100,
        std::numeric_limits<int>::max()};
    const int k = 1 + bytes_.next() % 64;
    const int set = bytes_.pick(values);
    iparm(k) = k == 3 ? std::min(set, 3) : set;  // each thread costs time
  }

  /// Types that share a storage.
  void set_scalar() {
    constexpr int symmetric[] = {2, -2, 4, -4, 6}, full[] = {11, 13};
    const int v = bytes_.next() % 4;
    switch (bytes_.next() % 4) {
      case 0:
        maxfct_ = v;
        break;
      case 1:
        mnum_ = v;
        break;
      case 2:
        msglvl_ = v % 2;
        break;
      default:
        m_.mtype = m_.triangle() ? bytes_.pick(symmetric) : bytes_.pick(full);
        break;
    }
  }

  /// Parameters of the iterative solver, and what the others read.
  void set_real() {
    constexpr double values[] = {0,
                                 1,
                                 10,
                                 300,
                                 -1,
                                 0.5,
                                 1e-3,
                                 1e-9,
                                 1e-300,
                                 1e300,
                                 std::numeric_limits<double>::infinity(),
                                 std::numeric_limits<double>::quiet_NaN()};
    const std::size_t k = static_cast<std::size_t>(bytes_.next()) % 64;
    dparm_[k] = bytes_.pick(values);
  }

  /// Phase -22 on copies, with room for both triangles of the inverse.
  void invert() {
    const Matrix kept = m_;
    m_.ja.resize(2 * kept.ja.size());
    m_.a.resize(2 * kept.a.size());
    run(-22);
    m_.ia = kept.ia;
    m_.ja = kept.ja;
    m_.a = kept.a;
  }

  int call(int phase) {
    const auto given = [&](int k, auto* array) {
      return (missing_ >> k & 1) != 0 ? nullptr : array;
    };
    int error = 0;
    velmora(pt_.data(), &maxfct_, &mnum_, &m_.mtype, &phase, &m_.n, given(0, m_.a.data()),
            given(1, m_.ia.data()), given(2, m_.ja.data()), given(3, perm_.data()), &nrhs_,
            iparm_.data(), &msglvl_, given(4, b_.data()), given(5, x_.data()), &error,
            given(6, dparm_.data()));
    missing_ = 0;
    return error;
  }

  void run(int phase) {
    const bool measured = iparm(40) > 0 && iparm(32) != 1 && (missing_ >> 6 & 1) == 0;
    const std::vector<double> b = b_;
    const int error = call(phase);
    if (error != 0) {
      char text[1024];
      velmora_last_message(text, sizeof text);
      require(text[0] != '\0', "a failure has a message");
    }
    if (measured && error == 0 && phase > 0 && phase % 10 == 3 && nrhs_ > 0 && iparm(41) >= 0)
      judge(b);
    if (iparm(6) == 1) b_ = b;
  }

  /// The solution that the library called good or repaired.
  void judge(const std::vector<double>& b) {
    require(iparm(41) <= 1, "a useless solution is an error");
    const bool transposed = (iparm(12) == 1 || iparm(12) == -2) && !m_.triangle();
    const auto length = static_cast<std::size_t>(m_.n * nrhs_ * m_.nvals());
    Matrix m = m_;
    m.a.resize(m.ja.size() * static_cast<std::size_t>(m.nvals()));
    const std::vector<double>& from = iparm(6) == 1 ? b_ : x_;
    const std::vector<double> x(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(length));
    const std::vector<double> rhs(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(length));
    for (const double v : x) require(std::isfinite(v), "a good solution is finite");
    vlm::test::Dense dense = vlm::test::to_dense(m);
    if (transposed) {
      const vlm::test::Dense plain = dense;
      for (int i = 0; i < m.n; ++i)
        for (int j = 0; j < m.n; ++j) dense(i, j) = plain(j, i);
    }
    for (int k = 0; k < nrhs_; ++k)
      require(backward_error(dense, m, x, rhs, k) <= 1.1 * dparm_[40] + 1e-14,
              "the componentwise backward error is the one told");
    if (iparm(40) >= 2 && dparm_[42] > 0) compare(dense, m, x, rhs);
  }

  /// Largest |b - A x| / (|A||x| + |b|) of right-hand side k over the rows whose terms are not
  /// tiny beside those of their entries and the largest x.
  double backward_error(const vlm::test::Dense& a, const Matrix& m, const std::vector<double>& x,
                        const std::vector<double>& b, int k) {
    const auto at = [&](const std::vector<double>& v, int i) {
      return std::complex<long double>(
          vlm::test::vector_value(m, v, static_cast<std::size_t>(k * m.n + i)));
    };
    long double size = 0, worst = 0;
    for (int j = 0; j < m.n; ++j) size = std::max(size, std::abs(at(x, j)));
    for (int i = 0; i < m.n; ++i) {
      std::complex<long double> r = at(b, i);
      long double terms = std::abs(r), row = 0;
      for (int j = 0; j < m.n; ++j) {
        const std::complex<long double> entry(a(i, j));
        r -= entry * at(x, j);
        terms += std::abs(entry) * std::abs(at(x, j));
        row += std::abs(entry);
      }
      const long double tiny = 1000 * m.n * 0x1p-53L * (row * size + std::abs(at(b, i)));
      if (r != std::complex<long double>() && terms > tiny)
        worst = std::max(worst, std::abs(r) / terms);
    }
    return static_cast<double>(worst);
  }

  /// The distance from the dense solution is within the bound, but for what that one is off itself.
  void compare(const vlm::test::Dense& dense, const Matrix& m, const std::vector<double>& x,
               const std::vector<double>& b) {
    // Beyond these sizes the dense routines, which do not scale, go astray themselves.
    for (const double v : m.a)
      if (v != 0 && !(std::abs(v) > 1e-20 && std::abs(v) < 1e20)) return;
    const double condition = vlm::test::dense_condition(dense);
    if (!(condition < 1e7)) return;  // beyond, this measure of it is none
    std::vector<vlm::test::cplx> right;
    for (std::size_t i = 0; i < static_cast<std::size_t>(m.n * nrhs_); ++i)
      right.push_back(vlm::test::vector_value(m, b, i));
    const auto exact = vlm::test::dense_solve(dense, right, nrhs_);
    for (int k = 0; k < nrhs_; ++k) {
      double off = 0, size = 0;
      for (int i = 0; i < m.n; ++i) {
        const auto at = static_cast<std::size_t>(k * m.n + i);
        off = std::max(off, std::abs(vlm::test::vector_value(m, x, at) - exact[at]));
        size = std::max(size, std::abs(exact[at]));
      }
      require(off <= (dparm_[42] + 1e-13 * condition) * size, "the error is within the bound");
    }
  }

  Bytes& bytes_;
  Matrix m_;
  std::array<void*, 64> pt_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
  std::vector<double> b_, x_;
  std::vector<int> perm_;
  int maxfct_ = 1, mnum_ = 1, nrhs_ = 1, msglvl_ = 0;
  int missing_ = 0;  ///< arrays that the next call gets null pointers for, a bit each
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, size);
  Session session(bytes);
  for (int k = 0; k < 12 && !bytes.empty(); ++k) session.step();
  return 0;
}
