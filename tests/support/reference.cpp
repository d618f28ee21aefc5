// SPDX-License-Identifier: BSD-3-Clause
#include "reference.hpp"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "kernels/blas.hpp"

extern "C" {
void zgetrs_(const char*, const int*, const int*, const std::complex<double>*, const int*,
             const int*, std::complex<double>*, const int*, int*);
void zheev_(const char*, const char*, const int*, std::complex<double>*, const int*, double*,
            std::complex<double>*, const int*, double*, int*);
}

namespace vlm::test {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Small matrices on one thread: a team that spins beside other processes takes 100 times as long.
class OneThread {
 public:
  OneThread() : before_(omp_get_max_threads()) { omp_set_num_threads(1); }
  ~OneThread() { omp_set_num_threads(before_); }

 private:
  int before_;
};

}  // namespace

// --- dense ----------------------------------------------------------------------------------

Dense to_dense(const Matrix& m) {
  Dense d{m.n, std::vector<cplx>(static_cast<std::size_t>(m.n) * m.n)};
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      const int j = m.ja[k] - 1;
      d(i, j) = m.value(k);
      if (m.triangle() && i != j) d(j, i) = m.hermitian() ? std::conj(m.value(k)) : m.value(k);
    }
  return d;
}

std::vector<cplx> dense_solve(const Dense& a, const std::vector<cplx>& b, int nrhs) {
  const OneThread one;
  Dense lu = a;
  std::vector<cplx> x = b;
  std::vector<int> pivot(static_cast<std::size_t>(a.n));
  if (blas::getrf(a.n, a.n, lu.a.data(), a.n, pivot.data()) != 0)
    throw std::runtime_error("dense_solve: singular matrix");
  const char none = 'N';
  int info = 0;
  zgetrs_(&none, &a.n, &nrhs, lu.a.data(), &a.n, pivot.data(), x.data(), &a.n, &info);
  return x;
}

double dense_log_abs_det(const Dense& a) {
  const OneThread one;
  Dense lu = a;
  std::vector<int> pivot(static_cast<std::size_t>(a.n));
  blas::getrf(a.n, a.n, lu.a.data(), a.n, pivot.data());
  double sum = 0;
  for (int i = 0; i < a.n; ++i) sum += std::log(std::abs(lu(i, i)));
  return sum;
}

std::vector<double> dense_eigenvalues(const Dense& a) {
  const OneThread one;
  Dense work = a;
  const int length = 64 * a.n, rwork_length = std::max(1, 3 * a.n);
  std::vector<cplx> scratch(static_cast<std::size_t>(length));
  std::vector<double> rwork(static_cast<std::size_t>(rwork_length)),
      w(static_cast<std::size_t>(a.n));
  const char values = 'N', lower = 'L';
  int info = 0;
  zheev_(&values, &lower, &a.n, work.a.data(), &a.n, w.data(), scratch.data(), &length,
         rwork.data(), &info);
  if (info != 0) throw std::runtime_error("dense_eigenvalues: no convergence");
  return w;
}

Inertia dense_inertia(const Dense& a) {
  Inertia r;
  for (const double w : dense_eigenvalues(a)) ++(w > 0 ? r.positive : r.negative);
  return r;
}

double dense_condition(const Dense& a) {
  const OneThread one;
  Dense gram{a.n, std::vector<cplx>(a.a.size())};
  blas::gemm('C', 'N', a.n, a.n, a.n, cplx(1), a.a.data(), a.n, a.a.data(), a.n, cplx(0),
             gram.a.data(), a.n);
  const std::vector<double> w = dense_eigenvalues(gram);
  return w.front() > 0 ? std::sqrt(w.back() / w.front()) : infinity;
}

Dense dense_schur(const Dense& a, int leading) {
  const int trailing = a.n - leading;
  Dense a11{leading, std::vector<cplx>(static_cast<std::size_t>(leading) * leading)};
  std::vector<cplx> a12(static_cast<std::size_t>(leading) * trailing);
  for (int j = 0; j < leading; ++j)
    for (int i = 0; i < leading; ++i) a11(i, j) = a(i, j);
  for (int j = 0; j < trailing; ++j)
    for (int i = 0; i < leading; ++i)
      a12[static_cast<std::size_t>(j) * leading + i] = a(i, leading + j);
  const std::vector<cplx> x = dense_solve(a11, a12, trailing);
  Dense s{trailing, std::vector<cplx>(static_cast<std::size_t>(trailing) * trailing)};
  for (int j = 0; j < trailing; ++j)
    for (int i = 0; i < trailing; ++i) {
      cplx sum = a(leading + i, leading + j);
      for (int k = 0; k < leading; ++k)
        sum -= a(leading + i, k) * x[static_cast<std::size_t>(j) * leading + k];
      s(i, j) = sum;
    }
  return s;
}

// --- vectors and errors ---------------------------------------------------------------------

std::vector<double> random_vector(const Matrix& m, int nrhs, std::uint64_t seed) {
  Rng rng(seed);
  std::vector<double> v(static_cast<std::size_t>(m.n) * nrhs * m.nvals());
  for (double& x : v) x = rng.uniform(-1, 1);
  return v;
}

cplx vector_value(const Matrix& m, const std::vector<double>& v, std::size_t i) {
  return m.complex() ? cplx(v[2 * i], v[2 * i + 1]) : cplx(v[i], 0);
}

namespace {

using wide = std::complex<long double>;

/// Calls visit(row, column, value) for every entry of A or A^T, both triangles.
template <class F>
void for_entries(const Matrix& m, bool transpose, F visit) {
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      const int j = m.ja[k] - 1;
      const cplx v = m.value(k);
      if (transpose && !m.triangle()) {
        visit(j, i, v);
        continue;
      }
      const cplx mirrored = m.hermitian() ? std::conj(v) : v;
      visit(i, j, transpose ? mirrored : v);
      if (m.triangle() && i != j) visit(j, i, transpose ? v : mirrored);
    }
}

/// Residual b - A x of one right-hand side, and |A| |x| + |b|.
void residual(const Matrix& m, const std::vector<double>& x, const std::vector<double>& b,
              int column, bool transpose, std::vector<wide>& r, std::vector<double>& scale) {
  const auto n = static_cast<std::size_t>(m.n), shift = n * static_cast<std::size_t>(column);
  r.assign(n, wide(0));
  scale.assign(n, 0);
  for (std::size_t i = 0; i < n; ++i) {
    r[i] = wide(vector_value(m, b, shift + i));
    scale[i] = std::abs(vector_value(m, b, shift + i));
  }
  for_entries(m, transpose, [&](int i, int j, cplx v) {
    const cplx xj = vector_value(m, x, shift + static_cast<std::size_t>(j));
    r[i] -= wide(v) * wide(xj);
    scale[i] += std::abs(v) * std::abs(xj);
  });
}

}  // namespace

std::vector<double> product(const Matrix& m, const std::vector<double>& x, int nrhs,
                            bool transpose) {
  const auto n = static_cast<std::size_t>(m.n);
  std::vector<double> y(x.size(), 0.0);
  for (int c = 0; c < nrhs; ++c)
    for_entries(m, transpose, [&](int i, int j, cplx v) {
      const cplx t = v * vector_value(m, x, n * c + j);
      const std::size_t p = n * c + i;
      if (m.complex()) {
        y[2 * p] += t.real();
        y[2 * p + 1] += t.imag();
      } else {
        y[p] += t.real();
      }
    });
  return y;
}

double componentwise_error(const Matrix& m, const std::vector<double>& x,
                           const std::vector<double>& b, int nrhs, bool transpose) {
  double worst = 0;
  std::vector<wide> r;
  std::vector<double> scale;
  for (int c = 0; c < nrhs; ++c) {
    residual(m, x, b, c, transpose, r, scale);
    for (std::size_t i = 0; i < r.size(); ++i) {
      const auto size = static_cast<double>(std::abs(r[i]));
      if (std::isnan(size)) return infinity;
      if (size > 0) worst = std::max(worst, size / scale[i]);
    }
  }
  return worst;
}

double normwise_error(const Matrix& m, const std::vector<double>& x, const std::vector<double>& b,
                      int nrhs, bool transpose) {
  std::vector<double> row_sum(static_cast<std::size_t>(m.n), 0.0);
  for_entries(m, transpose, [&](int i, int, cplx v) { row_sum[i] += std::abs(v); });
  const double norm_a = *std::max_element(row_sum.begin(), row_sum.end());
  const auto n = static_cast<std::size_t>(m.n);
  double worst = 0;
  std::vector<wide> r;
  std::vector<double> scale;
  for (int c = 0; c < nrhs; ++c) {
    residual(m, x, b, c, transpose, r, scale);
    double norm_r = 0, norm_x = 0, norm_b = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const auto size = static_cast<double>(std::abs(r[i]));
      if (std::isnan(size)) return infinity;
      norm_r = std::max(norm_r, size);
      norm_x = std::max(norm_x, std::abs(vector_value(m, x, n * c + i)));
      norm_b = std::max(norm_b, std::abs(vector_value(m, b, n * c + i)));
    }
    if (norm_r > 0) worst = std::max(worst, norm_r / (norm_a * norm_x + norm_b));
  }
  return worst;
}

double relative_difference(const std::vector<double>& u, const std::vector<double>& v) {
  double difference = 0, size = 0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (std::isnan(u[i]) || std::isnan(v[i])) return infinity;
    difference = std::max(difference, std::abs(u[i] - v[i]));
    size = std::max(size, std::abs(v[i]));
  }
  return difference == 0 ? 0 : difference / size;
}

// --- structure ------------------------------------------------------------------------------

bool is_permutation(std::span<const int> p) {
  std::vector<bool> seen(p.size() + 1, false);
  for (const int v : p) {
    if (v < 1 || static_cast<std::size_t>(v) > p.size() || seen[v]) return false;
    seen[v] = true;
  }
  return true;
}

bool are_inverse(std::span<const int> perm, std::span<const int> invp) {
  if (perm.size() != invp.size() || !is_permutation(perm)) return false;
  for (std::size_t i = 0; i < perm.size(); ++i)
    if (invp[perm[i] - 1] != static_cast<int>(i) + 1) return false;
  return true;
}

SymbolicReference eliminate(const Matrix& m, std::span<const int> perm, int kept) {
  SymbolicReference s;
  s.n = m.n;
  s.column.resize(static_cast<std::size_t>(m.n) + 1);
  s.parent.assign(static_cast<std::size_t>(m.n) + 1, 0);
  s.colcnt.assign(static_cast<std::size_t>(m.n) + 1, 0);
  std::vector<int> position(static_cast<std::size_t>(m.n) + 1);
  for (int p = 1; p <= m.n; ++p) position[perm[p - 1]] = p;

  for (int i = 1; i <= m.n; ++i) {
    s.column[i].insert(i);
    for (int k = m.ia[i - 1] - 1; k < m.ia[i] - 1; ++k) {
      const int p = position[i], q = position[m.ja[k]];
      s.column[std::min(p, q)].insert(std::max(p, q));
    }
  }
  for (int j = 1; j <= m.n; ++j) {
    // Eliminating j joins its later neighbours to each other; it is enough to tell the first.
    auto& rows = s.column[j];
    s.colcnt[j] = static_cast<int>(rows.size());
    s.nnz_l += s.colcnt[j];
    const int eliminated = m.n - kept;
    if (j > eliminated) {
      s.parent[j] = j < m.n ? j + 1 : 0;
      continue;
    }
    const auto first = rows.upper_bound(j);
    if (first == rows.end()) continue;
    s.parent[j] = *first;
    s.column[*first].insert(first, rows.end());
    // Columns that stay tell nobody.
    for (auto row = first; row != rows.end() && *first > eliminated; ++row)
      s.column[*row].insert(row, rows.end());
  }
  return s;
}

SupernodeReference supernodes(const SymbolicReference& s, int panel, int trailing) {
  SupernodeReference r;
  const int boundary = s.n - trailing + 1;
  bool boundary_cut = trailing <= 0 || trailing == s.n;
  int width = 0, chain = 0;
  for (int k = 1; k <= s.n; ++k) {
    const bool same = k > 1 && s.parent[k - 1] == k && s.colcnt[k - 1] == s.colcnt[k] + 1;
    bool joins = same && width < panel;
    if (same && !boundary_cut && k >= boundary) {
      joins = false;
      boundary_cut = true;
    }
    chain = same ? chain + 1 : 1;
    width = joins ? width + 1 : 1;
    r.largest = std::max(r.largest, chain);
    if (!joins) r.xsuper.push_back(k);
  }
  r.xsuper.push_back(s.n + 1);
  return r;
}

std::int64_t panel_entries(const SymbolicReference& s, const SupernodeReference& p) {
  std::int64_t sum = 0;
  for (std::size_t k = 0; k + 1 < p.xsuper.size(); ++k)
    sum += std::int64_t{p.xsuper[k + 1] - p.xsuper[k]} * s.colcnt[p.xsuper[k]];
  return sum;
}

std::int64_t rectangle_entries(const SymbolicReference& s, const SupernodeReference& p) {
  std::int64_t sum = 0;
  for (std::size_t k = 0; k + 1 < p.xsuper.size(); ++k)
    sum += std::int64_t{p.xsuper[k + 1] - p.xsuper[k]} * (s.colcnt[p.xsuper[k + 1] - 1] - 1);
  return sum;
}

}  // namespace vlm::test
