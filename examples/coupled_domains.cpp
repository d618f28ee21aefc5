// SPDX-License-Identifier: BSD-3-Clause
/// Two subdomains that meet at an interface, each condensed to it by a Schur complement: the
/// interface system is solved, the interiors follow, and all is checked against the whole.
///
///   c++ -std=c++17 coupled_domains.cpp $(pkg-config --cflags --libs velmora)
#include <velmora.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using Vector = std::vector<double>;

/// Upper triangle of a symmetric matrix: assembled by (row, column), then as compressed rows.
struct Matrix {
  explicit Matrix(int order) : n(order) {}
  void add(int i, int j, double v) { entry[{std::min(i, j), std::max(i, j)}] += v; }
  void finish() {
    ia.assign(1, 1);
    int row = 0;
    for (const auto& [at, value] : entry) {
      for (; row < at.first; ++row) ia.push_back(static_cast<int>(ja.size()) + 1);
      ja.push_back(at.second + 1);
      a.push_back(value);
    }
    ia.resize(static_cast<std::size_t>(n) + 1, static_cast<int>(ja.size()) + 1);
  }
  int n;
  std::map<std::pair<int, int>, double> entry;
  std::vector<int> ia, ja;
  Vector a;
};

/// A positive definite matrix with its factor, of which the last unknowns may be kept.
class Solver {
 public:
  Solver(const Matrix& m, int kept) : m_(m), kept_(kept) {
    const int direct = 0;
    int error = 0;
    iparm_[2] = 1;  // threads
    velmorainit(pt_.data(), &mtype, &direct, iparm_.data(), dparm_.data(), &error);
    if (kept > 0) iparm_[37] = m.n - kept;  // iparm(38): unknowns to eliminate
    call(12, nullptr, nullptr);
  }
  ~Solver() {
    try {
      call(-1, nullptr, nullptr);
    } catch (const std::runtime_error&) {
      std::cerr << "could not be released\n";
    }
  }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;

  /// Adds the Schur complement of the kept unknowns.
  void add_complement(Matrix& to) {
    const auto entries = static_cast<std::size_t>(iparm_[38]);
    std::vector<int> is(static_cast<std::size_t>(kept_) + 1), js(entries);
    Vector s(entries);
    const int one = 1;
    velmora_schur(pt_.data(), &one, &one, &mtype, s.data(), is.data(), js.data());
    for (int i = 0; i < kept_; ++i)
      for (int k = is[i] - 1; k < is[i + 1] - 1; ++k) to.add(i, js[k] - 1, s[k]);
  }
  /// iparm(26): 0 a whole solve, 1 its forward step, 2 its backward step.
  Vector solve(Vector b, int steps = 0) {
    Vector x(b.size());
    iparm_[25] = steps;
    call(33, b.data(), x.data());
    return x;
  }

 private:
  void call(int phase, double* b, double* x) {
    const int one = 1, quiet = 0;
    int error = 0;
    velmora(pt_.data(), &one, &one, &mtype, &phase, &m_.n, m_.a.data(), m_.ia.data(), m_.ja.data(),
            nullptr, &one, iparm_.data(), &quiet, b, x, &error, dparm_.data());
    if (error != 0) throw std::runtime_error("velmora failed");
  }
  static constexpr int mtype = 2;
  const Matrix& m_;
  int kept_;
  std::array<void*, 64> pt_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
};

/// Five-point Laplacian on columns first to last of a grid of `rows` points a column, numbered as
/// number(column, row) says.  The columns at `interface` belong to two domains: half to each.
template <class Number>
void assemble(Matrix& m, int rows, int first, int last, int interface, Number number) {
  for (int c = first; c <= last; ++c)
    for (int r = 0; r < rows; ++r) {
      const double share = c == interface ? 0.5 : 1.0;
      m.add(number(c, r), number(c, r), 4 * share);
      if (r > 0) m.add(number(c, r), number(c, r - 1), -share);
      if (c > first) m.add(number(c, r), number(c - 1, r), -1);
    }
  m.finish();
}

}  // namespace

int main() try {
  constexpr int rows = 30, columns = 30, middle = columns;  // of points, in each of two domains
  constexpr int inner = rows * columns, n = 2 * inner + rows;
  // The whole: left interior, right interior, interface.
  const auto whole_number = [](int c, int r) {
    if (c == middle) return 2 * inner + r;
    return (c < middle ? c : c - 1) * rows + r;
  };
  Matrix whole(n);
  assemble(whole, rows, 0, 2 * columns, -1, whole_number);
  Vector b(n);
  for (int i = 0; i < n; ++i) b[static_cast<std::size_t>(i)] = std::sin(i + 1.0);
  Solver whole_solver(whole, 0);
  const Vector right = whole_solver.solve(b);

  // Each domain: its interior, then the interface.
  Matrix left(inner + rows), other(inner + rows);
  assemble(left, rows, 0, middle, middle,
           [](int c, int r) { return c == middle ? inner + r : c * rows + r; });
  assemble(other, rows, middle, 2 * columns, middle,
           [](int c, int r) { return c == middle ? inner + r : (c - middle - 1) * rows + r; });
  Solver domains[] = {{left, rows}, {other, rows}};

  // The interface system is the sum of the domains' complements and condensed right-hand sides.
  Matrix interface(rows);
  Vector load(b.end() - rows, b.end());
  Vector half[2];
  for (int d = 0; d < 2; ++d) {
    domains[d].add_complement(interface);
    Vector own(b.begin() + d * inner, b.begin() + (d + 1) * inner);
    own.resize(inner + rows, 0.0);  // the interface's load is counted once, above
    half[d] = domains[d].solve(own, 1);
    for (int i = 0; i < rows; ++i) load[i] += half[d][inner + i];
  }
  interface.finish();
  const Vector at_interface = Solver(interface, 0).solve(load);

  double difference = 0, largest = 0;
  for (int d = 0; d < 2; ++d) {
    std::copy(at_interface.begin(), at_interface.end(), half[d].begin() + inner);
    const Vector x = domains[d].solve(half[d], 2);
    for (int i = 0; i < inner + rows; ++i) {
      const int node = i < inner ? d * inner + i : 2 * inner + i - inner;
      difference = std::max(difference, std::abs(x[i] - right[node]));
      largest = std::max(largest, std::abs(right[node]));
    }
  }
  std::cout << n << " unknowns, " << rows
            << " at the interface; domains against the whole: " << difference / largest << '\n';
  return difference <= 1e-13 * largest ? 0 : 1;
} catch (const std::exception& failure) {
  std::cerr << failure.what() << '\n';
  return 1;
}
