// SPDX-License-Identifier: BSD-3-Clause
// Sequences of matrices on one pattern: a factorization for each against stabilised solves.
//
//   sequence_bench [small|medium] [steps [repeats [class...]]]
//
// Three sequences for every class of problems: `time` steps an implicit scheme whose coefficients
// drift by some percent, `path` follows a parameter on the diagonal, `jump` takes unrelated values
// each time.  Each with three kinds of right-hand sides: `same` at every step, `step` with the last
// solution and a source that wanders, and `fresh` random ones.  Every step is one call of phase 23
// with one right-hand side, once with iparm(4) 0 and the default refinement, once with iparm(4) 2
// (where a triangle is stored) or 1; the two take turns, and the table shows the least processor
// seconds of one thread over all steps.  The first step, which analyses and factors, counts in
// neither.  A new factor shows in dparm(33), the logarithm of its determinant.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "gallery/gallery.hpp"
#include "problem.hpp"
#include "velmora.h"

namespace {

using gallery::Matrix;

double processor_seconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

/// A number in (-1, 1) that belongs to a pair of unknowns, the same for both directions.
double of_pair(int i, int j) {
  const auto low = static_cast<unsigned long long>(std::min(i, j));
  const auto high = static_cast<unsigned long long>(std::max(i, j));
  unsigned long long bits = (low << 32 | high) * 0x9E3779B97F4A7C15ull;
  bits ^= bits >> 29;
  bits *= 0xBF58476D1CE4E5B9ull;
  bits ^= bits >> 32;
  return static_cast<double>(bits >> 11) * 0x1p-52 - 1;
}

double mean_diagonal(const Matrix& m) {
  double sum = 0;
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p)
      if (m.ja[p - 1] == i) sum += std::abs(m.value(p - 1));
  return sum / m.n;
}

void add_to_diagonal(Matrix& m, double shift) {
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p)
      if (m.ja[p - 1] == i) m.a[static_cast<std::size_t>((p - 1) * m.nvals())] += shift;
}

/// Off-diagonal entries drift by up to 0.05 percent a step, each at its own pace; a mass term
/// stands on the diagonal.
Matrix time_step(const Matrix& m, int step) {
  Matrix out = m;
  add_to_diagonal(out, 0.1 * mean_diagonal(m));
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p) {
      const int j = m.ja[p - 1];
      if (j == i) continue;
      const double factor = 1 + 0.01 * std::sin(0.05 * step * of_pair(i, j));
      for (int part = 0; part < m.nvals(); ++part)
        out.a[static_cast<std::size_t>((p - 1) * m.nvals() + part)] *= factor;
    }
  return out;
}

/// Definite matrices become stiffer in a part of the domain, A(l) = A + l G A G for a diagonal G
/// with smooth entries; the others are shifted, as in a sweep over frequencies.
Matrix path_step(const Matrix& m, int step) {
  Matrix out = m;
  if (m.mtype != 2 && m.mtype != 4) {
    add_to_diagonal(out, 1e-5 * step * mean_diagonal(m));
    return out;
  }
  const auto stiffer = [&](int i) { return std::sin(3.14159265 * i / m.n); };
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p)
      for (int part = 0; part < m.nvals(); ++part)
        out.a[static_cast<std::size_t>((p - 1) * m.nvals() + part)] *=
            1 + 0.004 * step * stiffer(i) * stiffer(m.ja[p - 1]);
  return out;
}

/// Definite matrices get a part D A D with a random diagonal D, so that no scaling of the unknowns
/// leads from one to the other.
Matrix jump_step(const Matrix& m, int step) {
  Matrix out = gallery::with_new_values(m, static_cast<std::uint64_t>(step + 1));
  if (m.mtype == 2 || m.mtype == 4)
    for (std::size_t k = 0; k < out.a.size(); ++k) out.a[k] += m.a[k];
  return out;
}

struct Sequence {
  const char* name;
  Matrix (*step)(const Matrix& m, int step);
};
constexpr Sequence sequences[] = {{"time", time_step}, {"path", path_step}, {"jump", jump_step}};

enum class RightHandSide { same, step, fresh };
constexpr RightHandSide right_hand_sides[] = {RightHandSide::same, RightHandSide::step,
                                              RightHandSide::fresh};

/// The right-hand side of a step: ones; the last solution, brought to size one, and a source that
/// wanders through the unknowns, a twentieth of them a step; or random numbers.
void set_rhs(const Matrix& m, RightHandSide kind, int step, const std::vector<double>& last,
             std::vector<double>& b) {
  if (kind == RightHandSide::fresh) {
    std::mt19937_64 random(static_cast<std::uint64_t>(step));
    std::uniform_real_distribution<double> number(-1, 1);
    for (double& value : b) value = number(random);
    return;
  }
  std::fill(b.begin(), b.end(), 1.0);
  if (kind == RightHandSide::same) return;
  double size = 1e-300;
  for (const double value : last) size = std::max(size, std::abs(value));
  for (std::size_t i = 0; i < b.size(); ++i) {
    const double place = static_cast<double>(i) / static_cast<double>(m.n * m.nvals());
    b[i] = last[i] / size + 1 + std::sin(6.28318531 * (place - 0.05 * step));
  }
}

struct Outcome {
  double seconds = 0;   ///< all steps but the first
  double residual = 0;  ///< largest of max|b - Ax| / max|b|
  int factors = 0;      ///< made after the first step
  int iterations = 0;   ///< most of a step that needed no factor
};

Outcome run(const std::vector<Matrix>& matrices, RightHandSide rhs, bool hard, int stabilised) {
  std::array<void*, 64> pt{};
  std::array<int, 64> iparm{};
  std::array<double, 64> dparm{};
  const int one = 1, quiet = 0, direct = 0;
  const Matrix& first = matrices.front();
  int error = 0;
  iparm[2] = 1;
  velmorainit(pt.data(), &first.mtype, &direct, iparm.data(), dparm.data(), &error);
  if (hard) {
    iparm[10] = iparm[20] = 1;
    iparm[12] = 2;
  }
  iparm[3] = stabilised;
  iparm[32] = 1;
  std::vector<double> b(static_cast<std::size_t>(first.n * first.nvals()), 1.0), x(b.size());
  Outcome out;
  double determinant = 0;
  const auto call = [&](int phase, const Matrix& m) {
    velmora(pt.data(), &one, &one, &m.mtype, &phase, &m.n, m.a.data(), m.ia.data(), m.ja.data(),
            nullptr, &one, iparm.data(), &quiet, b.data(), x.data(), &error, dparm.data());
    if (error != 0) {
      std::array<char, 1000> text{};
      velmora_last_message(text.data(), static_cast<int>(text.size()));
      std::printf("phase %d gives error %d, iparm(20) %d\n%s\n", phase, error, iparm[19],
                  text.data());
      std::exit(1);
    }
  };
  for (std::size_t k = 0; k < matrices.size(); ++k) {
    set_rhs(matrices[k], rhs, static_cast<int>(k), x, b);
    const double start = processor_seconds();
    call(k == 0 ? 13 : 23, matrices[k]);
    if (k > 0) out.seconds += processor_seconds() - start;
    const bool fresh = dparm[32] != determinant;
    determinant = dparm[32];
    if (k > 0 && fresh) ++out.factors;
    if (!fresh) out.iterations = std::max(out.iterations, iparm[19]);
    // How good the solution is, outside of the time: the residual of the call's matrix.
    std::vector<double> y(b.size());
    double size = 0, largest = 0;
    const Matrix& m = matrices[k];
    const auto at = [&](const std::vector<double>& v, int i) {
      const auto p = static_cast<std::size_t>(i * m.nvals());
      return m.complex() ? gallery::cplx(v[p], v[p + 1]) : gallery::cplx(v[p], 0);
    };
    std::vector<gallery::cplx> r(static_cast<std::size_t>(m.n));
    for (int i = 0; i < m.n; ++i) r[static_cast<std::size_t>(i)] = at(b, i);
    for (int i = 1; i <= m.n; ++i)
      for (int p = m.ia[i - 1]; p < m.ia[i]; ++p) {
        const int j = m.ja[p - 1];
        r[static_cast<std::size_t>(i - 1)] -= m.value(p - 1) * at(x, j - 1);
        if (m.triangle() && j != i)
          r[static_cast<std::size_t>(j - 1)] -=
              (m.hermitian() ? std::conj(m.value(p - 1)) : m.value(p - 1)) * at(x, i - 1);
      }
    for (int i = 0; i < m.n; ++i) {
      largest = std::max(largest, std::abs(r[static_cast<std::size_t>(i)]));
      size = std::max(size, std::abs(at(b, i)));
    }
    out.residual = std::max(out.residual, largest / size);
  }
  call(-1, first);
  return out;
}

Outcome better(const Outcome& a, const Outcome& b) { return b.seconds < a.seconds ? b : a; }

void compare(const bench::ProblemClass& c, const std::string& size, int steps, int repeats) {
  const bench::Problem problem = bench::load(std::string(c.name) + ":" + size, 0);
  const int stabilised = problem.matrix.triangle() ? 2 : 1;
  for (const Sequence& sequence : sequences) {
    std::vector<Matrix> matrices;
    for (int k = 0; k <= steps; ++k) matrices.push_back(sequence.step(problem.matrix, k));
    double seconds = 0, of_plain = 0, of_kept = 0;
    std::string columns;
    for (const RightHandSide rhs : right_hand_sides) {
      Outcome plain{.seconds = 1e300}, kept{.seconds = 1e300};
      for (int k = 0; k < repeats; ++k) {
        plain = better(plain, run(matrices, rhs, c.hard, 0));
        kept = better(kept, run(matrices, rhs, c.hard, stabilised));
      }
      std::array<char, 80> text{};
      std::snprintf(text.data(), text.size(), " %.2f | %d | %d |", kept.seconds / plain.seconds,
                    kept.factors, kept.iterations);
      columns += text.data();
      seconds += plain.seconds / std::size(right_hand_sides);
      of_plain = std::max(of_plain, plain.residual);
      of_kept = std::max(of_kept, kept.residual);
    }
    std::printf("| %s | %d | %s | %.3f |%s %.0e | %.0e |\n", c.name, c.mtype, sequence.name,
                seconds, columns.c_str(), of_plain, of_kept);
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string size = argc > 1 ? argv[1] : "small";
  const int steps = argc > 2 ? std::atoi(argv[2]) : 20;
  const int repeats = argc > 3 ? std::atoi(argv[3]) : 3;
  std::printf(
      "| class | type | sequence | factor each, s | same: ratio | factors | iterations "
      "| step: ratio | factors | iterations | fresh: ratio | factors | iterations "
      "| residual, factor each | residual, stabilised |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n");
  for (const bench::ProblemClass& c : bench::problem_classes()) {
    const auto named = [&](const char* word) { return std::string(word) == c.name; };
    if (argc > 4 && std::none_of(argv + 4, argv + argc, named)) continue;
    compare(c, size, steps, repeats);
  }
}
