// SPDX-License-Identifier: BSD-3-Clause
/// The small problem of GMRES, see harmonic_ritz.hpp.
#include "NORV/solvers/harmonic_ritz.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "NORV/corelib/lapack.hpp"

namespace vlm {
namespace {

std::size_t at(int i) { return static_cast<std::size_t>(i); }

/// The rotation that makes b zero: (conj c, conj s; -s, c) (a, b) = (r, 0).  Of two zeros it is the
/// exchange, so that what a column of zeros leaves in the right-hand side counts as residual.
template <class T>
void generate_plane_rotation(T a, T b, T& c, T& s) {
  const double r = std::hypot(std::abs(a), std::abs(b));
  c = r == 0 ? T{} : a / r;
  s = r == 0 ? T{1} : b / r;
}

template <class T>
void apply_plane_rotation(T c, T s, T& a, T& b) {
  const T x = a, y = b;
  a = product(maybe_conj<true>(c), x) + product(maybe_conj<true>(s), y);
  b = product(c, y) - product(s, x);
}

/// Takes q's parts along the first columns of P off it and makes its norm 1.
/// @return false: it depends on them
template <class T>
bool orthonormalize(const DenseColumns<T>& P, int many, T* q) {
  const auto norm = [&] {
    double sum = 0;
    for (int i = 0; i < P.rows; ++i) sum += std::norm(q[i]);
    return std::sqrt(sum);
  };
  const double before = norm();
  for (int pass = 0; pass < 2; ++pass) {
    for (int j = 0; j < many; ++j) {
      const T* const v = P.column(j);
      T along{};
      for (int i = 0; i < P.rows; ++i) along += product(maybe_conj<true>(v[i]), q[i]);
      for (int i = 0; i < P.rows; ++i) q[i] -= product(along, v[i]);
    }
  }
  const double after = norm();
  constexpr double dependent = 1e-10;
  if (!(after > dependent * before)) return false;
  for (int i = 0; i < P.rows; ++i) q[i] /= after;
  return true;
}

/// Eigenvalues and right eigenvectors of a general matrix, which is destroyed; a conjugate pair of
/// a real matrix has real and imaginary part of the first vector in its two columns.
struct Spectrum {
  Buffer<zcomplex> value;
  bool found = false;
};

Spectrum eigenvectors(DenseColumns<double>& A, DenseColumns<double>& V) {
  const int n = A.rows;
  Buffer<double> re(at(n)), im(at(n)), work(at(8 * n));
  Spectrum spectrum;
  spectrum.found =
      lapack::geev(n, A.values.data(), re.data(), im.data(), V.values.data(), work.data()) == 0;
  for (int i = 0; i < n; ++i) spectrum.value.push_back({re[at(i)], im[at(i)]});
  return spectrum;
}

Spectrum eigenvectors(DenseColumns<zcomplex>& A, DenseColumns<zcomplex>& V) {
  const int n = A.rows;
  Spectrum spectrum;
  spectrum.value.resize(at(n));
  Buffer<zcomplex> work(at(4 * n));
  Buffer<double> real_work(at(2 * n));
  spectrum.found = lapack::geev(n, A.values.data(), spectrum.value.data(), V.values.data(),
                                work.data(), real_work.data()) == 0;
  return spectrum;
}

}  // namespace

template <class T>
void SmallProblem<T>::begin(T residual) {
  forget();
  begin(Buffer<T>(1, residual));
}

template <class T>
void SmallProblem<T>::begin(const Buffer<T>& coordinates) {
  c_.assign(at(most_ + 1), T{});
  std::copy(coordinates.begin(), coordinates.end(), c_.begin());
  g_ = c_;
  rotations_.clear();
  R_.clear();
  // The leading block is full: its columns are reduced from below.
  const int kept = columns_;
  for (columns_ = 0; columns_ < kept;) {
    R_.push_back(H_[at(columns_)]);
    reduce(R_.back().data(), kept);
    ++columns_;
  }
}

/// Rotates a new column and makes its rows from `upper` down to below the diagonal zero.
template <class T>
void SmallProblem<T>::reduce(T* column, int upper) {
  rotate(column);
  for (int i = upper - 1; i >= columns_; --i) {
    Rotation rotation{i, {}, {}};
    generate_plane_rotation(column[i], column[i + 1], rotation.c, rotation.s);
    apply_plane_rotation(rotation.c, rotation.s, column[i], column[i + 1]);
    column[i + 1] = T{};
    apply_plane_rotation(rotation.c, rotation.s, g_[at(i)], g_[at(i + 1)]);
    rotations_.push_back(rotation);
  }
}

template <class T>
void SmallProblem<T>::rotate(T* column) const {
  for (const Rotation& each : rotations_)
    apply_plane_rotation(each.c, each.s, column[each.row], column[each.row + 1]);
}

template <class T>
T* SmallProblem<T>::new_column() {
  H_.resize(at(columns_));
  H_.push_back(Buffer<T>(at(most_ + 1), T{}));
  return H_.back().data();
}

template <class T>
double SmallProblem<T>::enter_column() {
  R_.push_back(H_.back());
  reduce(R_.back().data(), columns_ + 1);
  ++columns_;
  return std::abs(g_[at(columns_)]);
}

template <class T>
bool SmallProblem<T>::singular() const {
  return columns_ > 0 && R_[at(columns_ - 1)][at(columns_ - 1)] == T{};
}

template <class T>
Buffer<T> SmallProblem<T>::solve() const {
  Buffer<T> y(g_.begin(), g_.begin() + columns_);
  for (int j = columns_ - 1; j >= 0; --j) {
    const T* const column = R_[at(j)].data();
    y[at(j)] = column[j] == T{} ? T{} : y[at(j)] / column[j];
    for (int i = 0; i < j; ++i) y[at(i)] -= product(column[i], y[at(j)]);
  }
  return y;
}

/// Orthonormal vectors that span those of (H_m + |h|^2 f e^H) for the k smallest values, where
/// f = H_m^-H e, e is the last unit vector and h the entry below H_m.
template <class T>
DenseColumns<T> SmallProblem<T>::ritz_vectors(int k) const {
  const int m = columns_;
  DenseColumns<T> E(m, m), transposed(m, m), V(m, m);
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < m; ++i) {
      E.column(j)[i] = H_[at(j)][at(i)];
      transposed.column(i)[j] = maybe_conj<true>(E.column(j)[i]);
    }
  Buffer<T> f(at(m), T{});
  f[at(m - 1)] = 1;
  Buffer<int> pivots(at(m));
  if (lapack::gesv(m, transposed.values.data(), pivots.data(), f.data()) != 0) return {};
  const double h2 = std::norm(H_[at(m - 1)][at(m)]);
  for (int i = 0; i < m; ++i) E.column(m - 1)[i] += h2 * f[at(i)];
  const Spectrum spectrum = eigenvectors(E, V);
  if (!spectrum.found) return {};
  Buffer<int> order(at(m));
  std::iota(order.begin(), order.end(), 0);
  // Stable, so that conjugates stay neighbours.
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    return std::abs(spectrum.value[at(a)]) < std::abs(spectrum.value[at(b)]);
  });
  if (!is_complex_v<T>) {
    const zcomplex edge = spectrum.value[at(order[at(k - 1)])];
    if (edge.imag() > 0) ++k;  // the first of a pair
  }
  DenseColumns<T> P(m, k);
  for (int j = 0; j < k; ++j) {
    std::copy_n(V.column(order[at(j)]), m, P.column(j));
    if (!orthonormalize(P, j, P.column(j))) return {};
  }
  return P;
}

template <class T>
DenseColumns<T> SmallProblem<T>::keep_smallest(int k, const Buffer<T>& y) {
  const int m = columns_;
  const DenseColumns<T> ritz = ritz_vectors(k);
  if (ritz.columns == 0) return {};
  k = ritz.columns;
  DenseColumns<T> P(m + 1, k + 1);
  for (int j = 0; j < k; ++j) std::copy_n(ritz.column(j), m, P.column(j));
  T* const residual = P.column(k);
  std::copy_n(c_.begin(), m + 1, residual);
  for (int j = 0; j < m; ++j)
    for (int i = 0; i <= m; ++i) residual[i] -= product(H_[at(j)][at(i)], y[at(j)]);
  if (!orthonormalize(P, k, residual)) return {};
  Buffer<Buffer<T>> turned;
  Buffer<T> image(at(m + 1));
  for (int j = 0; j < k; ++j) {
    std::fill(image.begin(), image.end(), T{});
    for (int l = 0; l < m; ++l)
      for (int i = 0; i <= m; ++i) image[at(i)] += product(H_[at(l)][at(i)], P.column(j)[l]);
    turned.push_back(Buffer<T>(at(most_ + 1), T{}));
    for (int row = 0; row <= k; ++row)
      for (int i = 0; i <= m; ++i)
        turned.back()[at(row)] += product(maybe_conj<true>(P.column(row)[i]), image[at(i)]);
  }
  H_ = std::move(turned);
  columns_ = k;
  return P;
}

template class SmallProblem<double>;
template class SmallProblem<zcomplex>;

}  // namespace vlm
