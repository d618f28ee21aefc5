// SPDX-License-Identifier: BSD-3-Clause
// CHOLMOD and MUMPS, where CMake found them.  Both get METIS: the first has it built in, Debian's
// build of the second has not and is given the order, whose time counts as analysis.
#include <metis.h>

#include <algorithm>
#include <cstring>

#include "solver.hpp"

#ifdef BENCH_HAS_CHOLMOD
#include <cholmod.h>
#endif
#ifdef BENCH_HAS_MUMPS
#include <dmumps_c.h>
#include <zmumps_c.h>
#endif

namespace bench {

std::vector<int> metis_order(const Matrix& m) {
  const Matrix full = m.triangle() ? gallery::expanded(m) : m;
  const Matrix mirror = m.triangle() ? Matrix{} : gallery::transposed(m);
  std::vector<idx_t> start = {0}, near;
  for (int i = 0; i < m.n; ++i) {
    const auto first = static_cast<std::ptrdiff_t>(near.size());
    near.insert(near.end(), full.ja.begin() + full.ia[i] - 1, full.ja.begin() + full.ia[i + 1] - 1);
    if (!m.triangle())
      near.insert(near.end(), mirror.ja.begin() + mirror.ia[i] - 1,
                  mirror.ja.begin() + mirror.ia[i + 1] - 1);
    std::sort(near.begin() + first, near.end());
    near.erase(std::unique(near.begin() + first, near.end()), near.end());
    near.erase(std::remove(near.begin() + first, near.end(), i + 1), near.end());
    start.push_back(static_cast<idx_t>(near.size()));
  }
  for (idx_t& j : near) --j;
  idx_t n = m.n, options[METIS_NOPTIONS];
  METIS_SetDefaultOptions(options);
  std::vector<idx_t> perm(static_cast<std::size_t>(n)), inverse(perm);
  if (METIS_NodeND(&n, start.data(), near.data(), nullptr, options, perm.data(), inverse.data()) !=
      METIS_OK)
    throw std::runtime_error("METIS_NodeND failed");
  return {perm.begin(), perm.end()};
}

#ifdef BENCH_HAS_CHOLMOD
namespace {

class Cholmod final : public Solver {
 public:
  explicit Cholmod(const Problem& problem)
      : start_(problem.matrix.ia), index_(problem.matrix.ja), value_(problem.matrix.a) {
    const Matrix& m = problem.matrix;
    for (int& v : start_) --v;
    for (int& v : index_) --v;
    // Upper triangle by rows is lower triangle by columns, of the conjugate.
    if (m.hermitian())
      for (std::size_t k = 1; k < value_.size(); k += 2) value_[k] = -value_[k];
    n_ = static_cast<std::size_t>(m.n);
    per_value_ = static_cast<std::size_t>(m.nvals());
    cholmod_start(&common_);
    common_.nmethods = 1;
    common_.method[0].ordering = CHOLMOD_METIS;
    common_.supernodal = CHOLMOD_SUPERNODAL;
    std::memset(&sparse_, 0, sizeof sparse_);
    sparse_.nrow = sparse_.ncol = n_;
    sparse_.nzmax = index_.size();
    sparse_.p = start_.data();
    sparse_.i = index_.data();
    sparse_.x = value_.data();
    sparse_.stype = -1;
    sparse_.itype = CHOLMOD_INT;
    sparse_.xtype = per_value_ == 2 ? CHOLMOD_COMPLEX : CHOLMOD_REAL;
    sparse_.sorted = sparse_.packed = 1;
  }
  ~Cholmod() override {
    cholmod_free_factor(&factor_, &common_);
    cholmod_free_dense(&x_, &common_);
    cholmod_free_dense(&y_, &common_);
    cholmod_free_dense(&e_, &common_);
    cholmod_finish(&common_);
  }
  void analyse() override {
    cholmod_free_factor(&factor_, &common_);
    factor_ = cholmod_analyze(&sparse_, &common_);
    check("analysis");
  }
  void factor() override {
    cholmod_factorize(&sparse_, factor_, &common_);
    check("factorization");
  }
  void solve(const double* b, double* x, int nrhs) override {
    cholmod_dense rhs;
    std::memset(&rhs, 0, sizeof rhs);
    rhs.nrow = rhs.d = n_;
    rhs.ncol = static_cast<std::size_t>(nrhs);
    rhs.nzmax = n_ * rhs.ncol;
    rhs.x = const_cast<double*>(b);
    rhs.xtype = sparse_.xtype;
    cholmod_solve2(CHOLMOD_A, factor_, &rhs, nullptr, &x_, nullptr, &y_, &e_, &common_);
    check("solve");
    std::memcpy(x, x_->x, sizeof(double) * rhs.nzmax * per_value_);
  }
  double factor_entries() const override { return common_.lnz; }
  double gflop() const override { return common_.fl * 1e-9 * (per_value_ == 2 ? 4 : 1); }

 private:
  void check(const char* what) const {
    if (common_.status != CHOLMOD_OK)
      throw std::runtime_error(std::string(what) + " gives status " +
                               std::to_string(common_.status));
  }
  std::vector<int> start_, index_;
  std::vector<double> value_;
  std::size_t n_ = 0, per_value_ = 1;
  cholmod_common common_;
  cholmod_sparse sparse_;
  cholmod_factor* factor_ = nullptr;
  cholmod_dense *x_ = nullptr, *y_ = nullptr, *e_ = nullptr;
};

}  // namespace

std::unique_ptr<Solver> make_cholmod(const Problem& problem, const Settings&) {
  const int mtype = problem.matrix.mtype;
  return mtype == 2 || mtype == 4 ? std::make_unique<Cholmod>(problem) : nullptr;
}
#else
std::unique_ptr<Solver> make_cholmod(const Problem&, const Settings&) { return nullptr; }
#endif

#ifdef BENCH_HAS_MUMPS
namespace {

inline void run(DMUMPS_STRUC_C& s) { dmumps_c(&s); }
inline void run(ZMUMPS_STRUC_C& s) { zmumps_c(&s); }

template <class Struct, class Value>
class Mumps final : public Solver {
 public:
  explicit Mumps(const Problem& problem) : stored_(problem.matrix) {
    // No Hermitian mode: those run as full matrices.
    const int mtype = stored_.mtype;
    const int symmetry = mtype == 2 ? 1 : mtype == -2 || mtype == 6 ? 2 : 0;
    if (symmetry == 0 && stored_.triangle()) stored_ = gallery::expanded(stored_, 13);
    for (int i = 0; i < stored_.n; ++i)
      row_.insert(row_.end(), static_cast<std::size_t>(stored_.ia[i + 1] - stored_.ia[i]), i + 1);
    std::memset(&s_, 0, sizeof s_);
    s_.par = 1;
    s_.sym = symmetry;
    s_.comm_fortran = -987654;
    job(-1, "start");
    for (int k = 1; k <= 3; ++k) control(k) = -1;
    control(4) = 0;
    control(14) = 40;  // slack of the work space, per cent
    s_.n = stored_.n;
    s_.nnz = stored_.nnz();
    s_.irn = row_.data();
    s_.jcn = stored_.ja.data();
    s_.a = reinterpret_cast<Value*>(stored_.a.data());
  }
  ~Mumps() override {
    s_.job = -2;
    run(s_);
  }
  void analyse() override {
    const std::vector<int> order = metis_order(stored_);
    position_.resize(order.size());
    for (std::size_t k = 0; k < order.size(); ++k) position_[order[k]] = static_cast<int>(k) + 1;
    control(7) = 1;
    s_.perm_in = position_.data();
    job(1, "analysis");
  }
  void factor() override {
    s_.job = 2;
    run(s_);
    for (int attempt = 0; attempt < 4 && (s_.infog[0] == -8 || s_.infog[0] == -9); ++attempt) {
      control(14) *= 2;  // pivoting needed more room
      run(s_);
    }
    check("factorization");
  }
  void solve(const double* b, double* x, int nrhs) override {
    const std::size_t count = static_cast<std::size_t>(stored_.n) * stored_.nvals() * nrhs;
    std::memcpy(x, b, sizeof(double) * count);
    s_.nrhs = nrhs;
    s_.lrhs = stored_.n;
    s_.rhs = reinterpret_cast<Value*>(x);
    job(3, "solve");
  }
  double factor_entries() const override {
    const double count = s_.infog[28];
    return count < 0 ? -1e6 * count : count;
  }
  double gflop() const override { return s_.rinfog[2] * 1e-9 * stored_.nvals() * stored_.nvals(); }

 private:
  int& control(int k) { return s_.icntl[k - 1]; }
  void check(const char* what) const {
    if (s_.infog[0] < 0)
      throw std::runtime_error(std::string(what) + " gives " + std::to_string(s_.infog[0]));
  }
  void job(int number, const char* what) {
    s_.job = number;
    run(s_);
    check(what);
  }
  Matrix stored_;
  std::vector<int> row_, position_;
  Struct s_;
};

}  // namespace

std::unique_ptr<Solver> make_mumps(const Problem& problem, const Settings&) {
  if (problem.matrix.complex())
    return std::make_unique<Mumps<ZMUMPS_STRUC_C, mumps_double_complex>>(problem);
  return std::make_unique<Mumps<DMUMPS_STRUC_C, double>>(problem);
}
#else
std::unique_ptr<Solver> make_mumps(const Problem&, const Settings&) { return nullptr; }
#endif

}  // namespace bench
