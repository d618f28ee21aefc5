// SPDX-License-Identifier: BSD-3-Clause
/// Random numbers, assembly of a matrix, its other forms, and the list of well-conditioned ones.
#include "gallery.hpp"

#include <algorithm>
#include <utility>

namespace gallery {

std::vector<int> Rng::permutation(int n) {
  std::vector<int> p(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) p[i] = i + 1;
  for (int i = n - 1; i > 0; --i) std::swap(p[i], p[below(i + 1)]);
  return p;
}

Builder::Builder(std::string name, int mtype, int n) {
  m_.name = std::move(name);
  m_.mtype = mtype;
  m_.n = n;
}

void Builder::add(int i, int j, cplx v) {
  if (m_.triangle() && i > j) {
    std::swap(i, j);
    if (m_.hermitian()) v = std::conj(v);
  }
  row_.push_back(i);
  col_.push_back(j);
  re_.push_back(v.real());
  if (m_.complex()) im_.push_back(v.imag());
}

void Builder::edge(int i, int j, double w) {
  add(i, i, w);
  add(j, j, w);
  add(i, j, -w);
  if (!m_.triangle()) add(j, i, -w);
}

Matrix Builder::finish() {
  if (m_.mtype < 11)
    for (int i = 0; i < m_.n; ++i) add(i, i, 0);
  // Counting sort by row, then each row by column.
  std::vector<std::size_t> start(static_cast<std::size_t>(m_.n) + 1, 0);
  for (const int r : row_) ++start[r + 1];
  for (int i = 0; i < m_.n; ++i) start[i + 1] += start[i];
  std::vector<std::size_t> entry(row_.size()), next(start.begin(), start.end() - 1);
  for (std::size_t k = 0; k < row_.size(); ++k) entry[next[row_[k]]++] = k;

  m_.ia.assign(1, 1);
  for (int i = 0; i < m_.n; ++i) {
    const auto first = entry.begin() + static_cast<std::ptrdiff_t>(start[i]);
    const auto last = entry.begin() + static_cast<std::ptrdiff_t>(start[i + 1]);
    // The index breaks ties, so that duplicates are summed in the order they came.
    std::sort(first, last, [&](std::size_t p, std::size_t q) {
      return col_[p] != col_[q] ? col_[p] < col_[q] : p < q;
    });
    for (auto p = first; p != last;) {
      const int column = col_[*p];
      double re = 0, im = 0;
      for (; p != last && col_[*p] == column; ++p) {
        re += re_[*p];
        if (m_.complex()) im += im_[*p];
      }
      m_.ja.push_back(column + 1);
      m_.a.push_back(re);
      if (m_.complex()) m_.a.push_back(im);
    }
    m_.ia.push_back(m_.nnz() + 1);
  }
  return std::move(m_);
}

// --- other forms of a matrix ----------------------------------------------------------------

Matrix expanded(const Matrix& m, int mtype) {
  if (mtype == 0) mtype = m.complex() ? 3 : 1;
  Builder b(m.name + "_full", mtype, m.n);
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      const int j = m.ja[k] - 1;
      const cplx v = m.value(k);
      b.add(i, j, v);
      if (m.triangle() && i != j) b.add(j, i, m.hermitian() ? std::conj(v) : v);
    }
  return b.finish();
}

Matrix transposed(const Matrix& m) {
  Builder b(m.name + "_transposed", m.mtype, m.n);
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) b.add(m.ja[k] - 1, i, m.value(k));
  return b.finish();
}

Matrix with_new_values(const Matrix& m, std::uint64_t seed) {
  Rng rng(seed);
  Matrix r = m;
  // D A D with D near 1 keeps definiteness, and inertia, but changes every entry.
  std::vector<double> d(static_cast<std::size_t>(m.n));
  for (double& v : d) v = rng.uniform(0.6, 1.4);
  const auto nv = static_cast<std::size_t>(m.nvals());
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k)
      for (std::size_t v = 0; v < nv; ++v) r.a[nv * k + v] *= d[i] * d[m.ja[k] - 1];
  return r;
}

namespace {

/// Types with a stored triangle: the classes that can be made in each of them.
void add_triangle_classes(std::vector<Matrix>& list, int mtype) {
  for (const int n : {1, 2, 3}) list.push_back(dense(n, 10 + n, mtype));
  list.push_back(dense(90, 14, mtype));  // wider than one panel
  list.push_back(arrow(60, false, 15, mtype));
  list.push_back(arrow(60, true, 16, mtype));
  list.push_back(tridiagonal(75, 17, mtype));
  list.push_back(block_diagonal(7, 9, 18, mtype));
  list.push_back(diagonal_plus_few(80, 5, 19, mtype));
}

}  // namespace

std::vector<Matrix> well_conditioned(int mtype) {
  std::vector<Matrix> list;
  if (mtype % 2 == 0) add_triangle_classes(list, mtype);
  switch (mtype) {
    case 2:
      list.insert(list.end(), {poisson2d(17), poisson3d(7), elasticity3d(4, 21), plate(12, 22),
                               random_spd(250, 6, 23)});
      break;
    case -2:
      list.insert(list.end(),
                  {shifted_laplacian(16, 1.1, true, 31), shifted_laplacian(7, 1.3, false, 32),
                   saddle_point(4, 33), interior_point_kkt(8, 2, 34),
                   random_indefinite(120, 0.05, 0.0, 35), random_indefinite(60, 0.5, 0.3, 36)});
      break;
    case 4:
      list.insert(list.end(), {magnetic_laplacian(6, 0, 41), random_spd(200, 6, 42, 4)});
      break;
    case -4:
      list.insert(list.end(),
                  {magnetic_laplacian(6, 1.7, 51), random_indefinite(100, 0.06, 0.2, 52, -4)});
      break;
    case 6:
      list.insert(list.end(), {helmholtz(15, 0.6, true, 61), helmholtz(6, 0.8, false, 62),
                               random_indefinite(100, 0.06, 0.2, 63, 6)});
      break;
    case 1:
    case 3:
      list.insert(list.end(), {structurally_symmetric(5, 71, mtype),
                               random_structurally_symmetric(120, 5, 74, mtype),
                               expanded(mtype == 1 ? poisson3d(6) : helmholtz(12, 0.6, true, 72)),
                               expanded(dense(40, 73, mtype == 1 ? 2 : 4), mtype)});
      break;
    case 11:
      list.insert(list.end(), {cfd_blocks(4, 81), random_unsymmetric(150, 5, 0.3, 82)});
      [[fallthrough]];
    case 13:
      list.insert(list.end(), {convection_diffusion(6, 5, 83, mtype),
                               random_unsymmetric(200, 5, 1.0, 84, mtype), dense(50, 85, mtype),
                               random_unsymmetric(2, 1, 1.0, 86, mtype),
                               random_unsymmetric(3, 2, 1.0, 87, mtype)});
      break;
    default:
      break;
  }
  return list;
}

}  // namespace gallery
