// SPDX-License-Identifier: BSD-3-Clause
/// Matrices by class, each made from a size and a seed.
///
/// Every generator writes the storage that the entry point takes: compressed rows, 1-based,
/// columns ascending; for the symmetric and Hermitian types the upper triangle with the diagonal
/// entry first in each row, an explicit zero where the matrix has none.  Tests use small sizes,
/// the benchmark the same generators at full size, so each costs O(nnz log(row length)).
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace gallery {

using cplx = std::complex<double>;

struct Matrix {
  std::string name;
  int mtype = 0, n = 0;
  std::vector<int> ia, ja;  ///< [n+1], [nnz], 1-based
  std::vector<double> a;    ///< [nnz], twice as long for complex types
  /// Inertia known from the construction, -1 where it is not.
  int positive = -1, negative = -1;

  int nnz() const { return static_cast<int>(ja.size()); }
  bool complex() const {
    return mtype == 3 || mtype == 4 || mtype == -4 || mtype == 6 || mtype == 13;
  }
  bool hermitian() const { return mtype == 4 || mtype == -4; }
  bool triangle() const { return mtype % 2 == 0; }  ///< only the upper triangle is stored
  int nvals() const { return complex() ? 2 : 1; }   ///< doubles per value
  /// Value of stored entry k, k from 0.
  cplx value(int k) const {
    const auto p = static_cast<std::size_t>(k);
    return complex() ? cplx(a[2 * p], a[2 * p + 1]) : cplx(a[p], 0);
  }
};

/// Random numbers that are the same with every standard library.
class Rng {
 public:
  explicit Rng(std::uint64_t seed) : bits_(seed) {}
  double uniform(double low = 0, double high = 1) {
    return low + (high - low) * static_cast<double>(bits_() >> 11) * 0x1p-53;
  }
  int below(int n) { return static_cast<int>(bits_() % static_cast<std::uint64_t>(n)); }
  double log10_uniform(double low, double high) { return std::pow(10.0, uniform(low, high)); }
  /// Uniform in (-1, 1), with an imaginary part when the kind is complex.
  cplx centred(bool complex) {
    const double re = uniform(-1, 1);
    return {re, complex ? uniform(-1, 1) : 0.0};
  }
  /// Random permutation of 1..n.
  std::vector<int> permutation(int n);

 private:
  std::mt19937_64 bits_;
};

/// Collects entries in any order and writes them as a Matrix; duplicates are summed.
class Builder {
 public:
  Builder(std::string name, int mtype, int n);
  /// Adds v to entry (i, j), indices from 0.  Triangle storage: name each pair once, on either
  /// side; an entry below the diagonal is mirrored, and conjugated for a Hermitian type.
  void add(int i, int j, cplx v);
  /// Adds w at (i, i) and (j, j) and -w at (i, j) and (j, i): one edge of a weighted Laplacian.
  void edge(int i, int j, double w);
  bool complex() const { return m_.complex(); }
  /// The finished matrix; types with a stored triangle and 1, 3 get every diagonal entry.
  Matrix finish();

 private:
  Matrix m_;
  std::vector<int> row_, col_;
  std::vector<double> re_, im_;
};

// --- real symmetric positive definite -------------------------------------------------------

/// 5-point Laplacian on a g by g grid.
Matrix poisson2d(int g);
/// 7-point Laplacian on a g by g by g grid.
Matrix poisson3d(int g);
/// Elastic network: 3 displacements per node of a g^3 grid, springs to all 26 neighbours of a
/// node with random stiffness, clamped at one face; the pattern of trilinear hexahedra.
Matrix elasticity3d(int g, std::uint64_t seed);
/// Clamped plate: L D L with the 5-point Laplacian L and random stiffness D, 13-point stencil.
Matrix plate(int g, std::uint64_t seed);
/// Random pattern of about `degree` off-diagonal entries a row, diagonally dominant.  mtype 2 or 4.
Matrix random_spd(int n, int degree, std::uint64_t seed, int mtype = 2);

// --- real symmetric indefinite --------------------------------------------------------------

/// 7-point (5-point when flat) Laplacian minus a randomly varying shift around `shift`.
Matrix shifted_laplacian(int g, double shift, bool flat, std::uint64_t seed);
/// Mixed flow problem [M B^T; B 0] on g^3 cells: fluxes on faces, then pressures with an explicit
/// zero diagonal; permeability random over two decades.
Matrix saddle_point(int g, std::uint64_t seed);
/// Stokes flow [V B^T; B -C] on g by g cells: velocities on the inner faces, pressures in the cells,
/// whose diagonal is zero but for one cell, where the pressure is given.
Matrix stokes(int g);
/// Interior-point step [Q+D A^T; A 0] over g*g cells: barrier diagonal D over `decades` decades,
/// two variables and one constraint a cell, and g/4 constraints that couple far cells.
Matrix interior_point_kkt(int g, int decades, std::uint64_t seed);
/// Random pattern with off-diagonal density `density`; the diagonal is zero with probability
/// `zero_diagonal`, else in (-2, 2).  mtype -2, -4 or 6.
Matrix random_indefinite(int n, double density, double zero_diagonal, std::uint64_t seed,
                         int mtype = -2);
/// Dense last row and column, diagonal elsewhere.  With `reversed` the dense row comes first.
Matrix arrow(int n, bool reversed, std::uint64_t seed, int mtype = -2);
Matrix tridiagonal(int n, std::uint64_t seed, int mtype = -2);
/// Every entry stored.
Matrix dense(int n, std::uint64_t seed, int mtype = -2);
/// Disconnected: `blocks` dense blocks of `size`, interleaved so that no block is contiguous.
Matrix block_diagonal(int blocks, int size, std::uint64_t seed, int mtype = -2);
/// A diagonal of both signs and `few` off-diagonal pairs.
Matrix diagonal_plus_few(int n, int few, std::uint64_t seed, int mtype = -2);

// --- unsymmetric ----------------------------------------------------------------------------

/// First-order upwind convection-diffusion in a recirculating wind, cell Peclet number `peclet`.
/// mtype 11, or 13 with random phases and one-sided couplings dropped.
Matrix convection_diffusion(int g, double peclet, std::uint64_t seed, int mtype = 11);
/// Four coupled unknowns a cell on a g^3 grid, upwind fluxes, each unknown in another unit.
Matrix cfd_blocks(int g, std::uint64_t seed);
/// Modified nodal analysis: resistors over ten decades on a random sparse graph with hubs, voltage
/// sources with structurally zero diagonal, controlled current sources.
Matrix circuit(int nodes, std::uint64_t seed);
/// A diagonally dominant matrix with its columns permuted cyclically in cycles of different length
/// and rows and columns scaled by powers of ten up to 10^+-decades.  mtype 11 or 13.
Matrix badly_scaled(int n, double decades, std::uint64_t seed, int mtype = 11);
/// Three rows share two columns and have nothing else: structural rank n-1.  mtype 11 or 13;
/// -2, -4, 6 get the symmetric analogue.
Matrix structurally_singular(int n, std::uint64_t seed, int mtype = 11);
/// Random pattern, unsymmetric, about `degree` off-diagonal entries a row; `dominance` 1 makes the
/// diagonal as large as the row's sum, 0 leaves it random.  mtype 11 or 13.
Matrix random_unsymmetric(int n, int degree, double dominance, std::uint64_t seed, int mtype = 11);

// --- structurally symmetric and complex -----------------------------------------------------

/// Two reacting species a cell on a g^3 grid, central differences: a(i,j) and a(j,i) both stored
/// and different.  mtype 1 or 3.
Matrix structurally_symmetric(int g, std::uint64_t seed, int mtype = 1);
/// Random symmetric pattern of about `degree` off-diagonal entries a row, values unrelated,
/// diagonally dominant by rows.  mtype 1 or 3.
Matrix random_structurally_symmetric(int n, int degree, std::uint64_t seed, int mtype = 1);
/// Helmholtz equation with absorbing boundary, `wavenumber` per cell, complex symmetric (6).
Matrix helmholtz(int g, double wavenumber, bool flat, std::uint64_t seed);
/// Magnetic Laplacian: hopping exp(i theta) between neighbours of a g^3 grid.  shift 0 gives a
/// Hermitian positive definite matrix (4), a positive shift an indefinite one (-4).
Matrix magnetic_laplacian(int g, double shift, std::uint64_t seed);

// --- other forms of a matrix ----------------------------------------------------------------

/// Both triangles of a triangle-stored matrix as type 1 or 3 (real or complex), or as `mtype`.
Matrix expanded(const Matrix& m, int mtype = 0);
/// The transpose (not conjugated) of a fully stored matrix.
Matrix transposed(const Matrix& m);
/// Other values on the same pattern, of the same kind and about the same size; stays definite.
Matrix with_new_values(const Matrix& m, std::uint64_t seed);

/// Well-conditioned matrices of a type, of every class that has one: n from 1 to a few hundred.
std::vector<Matrix> well_conditioned(int mtype);

/// All nine type codes.
inline constexpr int all_mtypes[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};

}  // namespace gallery
