// SPDX-License-Identifier: BSD-3-Clause
/// Small dense systems, see small_dense.hpp.
#include "NORV/precons/small_dense.hpp"

#include <algorithm>
#include <utility>

#include "NORV/corelib/vec_common.hpp"

namespace vlm::norv {
namespace {

/// x' y, the first conjugated.
template <class T>
T inner(int n, const T* x, const T* y) {
  T sum{};
  for (int i = 0; i < n; ++i) sum += product(maybe_conj<true>(x[i]), y[i]);
  return sum;
}

/// sum x(i) y(i).
template <class T>
T bilinear(int n, const T* x, const T* y) {
  T sum{};
  for (int i = 0; i < n; ++i) sum += product(x[i], y[i]);
  return sum;
}

template <class T>
double norm(int n, const T* x) {
  return std::sqrt(real_part(inner(n, x, x)));
}

/// y += by x.
template <class T>
void add(int n, const T& by, const T* x, T* y) {
  for (int i = 0; i < n; ++i) y[i] += product(by, x[i]);
}

/// y = A x - shift y, A m by n.
template <class T>
void times(int m, int n, const T* a, const T* x, double shift, T* y) {
  for (int i = 0; i < m; ++i) y[i] *= -shift;
  for (int j = 0; j < n; ++j) add(m, x[j], a + std::ptrdiff_t{j} * m, y);
}

/// y = A^H x - shift y.
template <class T>
void times_adjoint(int m, int n, const T* a, const T* x, double shift, T* y) {
  for (int j = 0; j < n; ++j) y[j] = inner(m, a + std::ptrdiff_t{j} * m, x) - shift * y[j];
}

/// Scales to length 1.  @return the length before
template <class T>
double normalize(int n, T* x) {
  const double length = norm(n, x);
  for (int i = 0; i < n && length > 0; ++i) x[i] /= length;
  return length;
}

}  // namespace

template <class T>
void least_squares(int m, int n, T* a, T* b, Vector<T>& r, T* x) {
  r.assign(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), T{});
  const auto column = [&](int j) { return a + std::ptrdiff_t{j} * m; };
  const auto at = [&](int i, int j) -> T& { return r[static_cast<std::size_t>(j) * n + i]; };
  for (int j = 0; j < n; ++j) {
    T* const v = column(j);
    const double before = norm(m, v);
    for (int pass = 0; pass < 2; ++pass)
      for (int k = 0; k < j; ++k) {
        const T along = inner(m, column(k), v);
        at(k, j) += along;
        add(m, -along, column(k), v);
      }
    const double left = norm(m, v);
    constexpr double dependent = 1e-12;
    at(j, j) = left > dependent * before ? T(left) : T{};
    for (int i = 0; i < m; ++i) v[i] = at(j, j) == T{} ? T{} : v[i] / left;
    x[j] = inner(m, v, b);
    add(m, -x[j], v, b);
  }
  for (int j = n - 1; j >= 0; --j) {
    x[j] = at(j, j) == T{} ? T{} : divide(x[j], at(j, j));
    for (int i = 0; i < j; ++i) x[i] -= product(at(i, j), x[j]);
  }
}

template <class T>
void eliminate(int n, int nrhs, T* a, T* b) {
  const auto at = [&](int i, int j) -> T& { return a[std::ptrdiff_t{j} * n + i]; };
  const auto rhs = [&](int i, int c) -> T& { return b[std::ptrdiff_t{c} * n + i]; };
  for (int k = 0; k < n; ++k) {
    int best = k;
    for (int i = k + 1; i < n; ++i)
      if (magnitude(at(i, k)) > magnitude(at(best, k))) best = i;
    if (at(best, k) == T{}) continue;
    if (best != k) {
      for (int j = k; j < n; ++j) std::swap(at(k, j), at(best, j));
      for (int c = 0; c < nrhs; ++c) std::swap(rhs(k, c), rhs(best, c));
    }
    for (int i = k + 1; i < n; ++i) at(i, k) = divide(at(i, k), at(k, k));
    for (int j = k + 1; j < n; ++j) add(n - k - 1, -at(k, j), &at(k, k) + 1, &at(k, j) + 1);
    for (int c = 0; c < nrhs; ++c) add(n - k - 1, -rhs(k, c), &at(k, k) + 1, &rhs(k, c) + 1);
  }
  for (int c = 0; c < nrhs; ++c)
    for (int k = n - 1; k >= 0; --k) {
      rhs(k, c) = at(k, k) == T{} ? T{} : divide(rhs(k, c), at(k, k));
      add(k, -rhs(k, c), &at(0, k), &rhs(0, c));
    }
}

template <class T>
void dense_lsqr(int m, int n, const T* a, const T* b, double tolerance, Vector<T>& work, T* x) {
  work.assign(static_cast<std::size_t>(m) + 2 * static_cast<std::size_t>(n), T{});
  T *const u = work.data(), *const v = u + m, *const w = v + n;
  std::fill_n(x, n, T{});
  std::copy_n(b, m, u);
  const double beta = normalize(m, u);
  times_adjoint(m, n, a, u, 0, v);
  double alpha = normalize(n, v);
  const double enough = tolerance * alpha * beta;
  std::copy_n(v, n, w);
  double phi_bar = beta, rho_bar = alpha;
  for (int step = 0; step < n + 2 && alpha * beta > 0; ++step) {
    times(m, n, a, v, alpha, u);
    const double length = normalize(m, u);
    times_adjoint(m, n, a, u, length, v);
    alpha = normalize(n, v);
    const double rho = std::hypot(rho_bar, length), c = rho_bar / rho, s = length / rho,
                 phi = c * phi_bar;
    phi_bar *= s;
    rho_bar = -c * alpha;
    for (int i = 0; i < n; ++i) {
      x[i] += w[i] * (phi / rho);
      w[i] = v[i] - w[i] * (s * alpha / rho);
    }
    if (!(phi_bar * alpha * std::fabs(c) > enough)) return;
  }
}

template <class T>
void conjugate_residuals(int n, const T* a, const T* b, double tolerance, Vector<T>& work, T* x) {
  const auto length = static_cast<std::size_t>(n);
  work.assign(4 * length, T{});
  T *const r = work.data(), *const p = r + n, *const ar = p + n, *const ap = ar + n;
  std::fill_n(x, n, T{});
  std::copy_n(b, n, r);
  std::copy_n(b, n, p);
  times(n, n, a, r, 0, ar);
  std::copy_n(ar, n, ap);
  T rho = bilinear(n, r, ar);
  const double enough = tolerance * norm(n, b);
  for (int step = 0; step < n + 2 && norm(n, r) > enough; ++step) {
    const T square = bilinear(n, ap, ap);
    if (square == T{} || rho == T{}) return;
    const T alpha = divide(rho, square);
    add(n, alpha, p, x);
    add(n, -alpha, ap, r);
    times(n, n, a, r, 0, ar);
    const T next = bilinear(n, r, ar), beta = divide(next, rho);
    rho = next;
    for (int i = 0; i < n; ++i) {
      p[i] = r[i] + product(beta, p[i]);
      ap[i] = ar[i] + product(beta, ap[i]);
    }
  }
}

#define INSTANCES(T)                                                              \
  template void least_squares(int, int, T*, T*, Vector<T>&, T*);                  \
  template void eliminate(int, int, T*, T*);                                      \
  template void dense_lsqr(int, int, const T*, const T*, double, Vector<T>&, T*); \
  template void conjugate_residuals(int, const T*, const T*, double, Vector<T>&, T*);
INSTANCES(double)
INSTANCES(zcomplex)
#undef INSTANCES

}  // namespace vlm::norv
