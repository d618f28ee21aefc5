// SPDX-License-Identifier: BSD-3-Clause
/// Factors beside the caller's, see second_factor.hpp.
#include "driver/second_factor.hpp"

#include <algorithm>
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>

#include "base/status.hpp"
#include "base/values.hpp"
#include "driver/do_all_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/input_scan.hpp"
#include "driver/velmora_c.hpp"

namespace vlm {
namespace {

/// Free pivots are given up beyond so many operations, and so many times those of the panels.
constexpr double least_operations = 2e10, operations_factor = 30;

/// Both triangles of an upper one; the lower is conjugated for Hermitian types.
template <class T>
void write_out(const InputMatrix& m, bool hermitian, Vector<int>& ia, Vector<int>& ja, T* a) {
  Vector<int> next(ia.begin(), ia.end() - 1);
  const auto put = [&](int row, int column, const T& v) {
    const int place = next[static_cast<std::size_t>(row)]++ - 1;
    ja[static_cast<std::size_t>(place)] = column + 1;
    a[place] = v;
  };
  for (int i = 0; i < m.n; ++i)  // rows above come first: ascending columns
    for (int p = m.ia[i]; p < m.ia[i + 1]; ++p) {
      const int j = m.ja[p - 1] - 1;
      const T v = value_at<T>(m.a, p - 1);
      if (j != i) put(j, i, hermitian ? maybe_conj<true>(v) : v);
    }
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i]; p < m.ia[i + 1]; ++p) put(i, m.ja[p - 1] - 1, value_at<T>(m.a, p - 1));
}

}  // namespace

void SecondFactor::release() {
  if (!handle_is_empty(handle_.data())) {
    release_analysis(handle_.data());
    release_handle(handle_.data());
  }
  for (Vector<int>* v : {&ia_, &ja_, &order_}) Vector<int>().swap(*v);
  Vector<double>().swap(a_);
  lu_ = FreeLu();
  result_ = {};
  matrix_ = {};
}

bool SecondFactor::has_signs() const {
  const MatrixType& type = matrix_type(mtype_);
  return type.family == Family::ldlt && (type.hermitian || !type.complex);
}

std::size_t SecondFactor::bytes() const {
  const std::size_t own = (ia_.size() + ja_.size() + order_.size()) * sizeof(int) +
                          a_.size() * sizeof(double) + lu_.bytes();
  return own + 1024 * (static_cast<std::size_t>(iparm_[15]) + static_cast<std::size_t>(iparm_[16]));
}

void SecondFactor::set_options(const Call& call, const Options& options,
                               const FactorSettings& settings) {
  const View<int> iparm(iparm_.data(), 64);
  iparm(3) = options.threads;
  initial_settings(settings.mtype, 0, iparm, dparm_.data());
  iparm(2) = static_cast<int>(settings.order);
  iparm(5) = settings.user_order ? 1 : 0;
  iparm(10) = settings.perturbation;
  iparm(11) = settings.scaled ? 1 : 0;
  iparm(13) = settings.matching;
  iparm(21) = settings.pairs ? 1 : 0;
  for (const int same : {24, 25, 28, 30, 34}) iparm(same) = call.iparm(same);
}

void SecondFactor::expand(const Call& call, const MatrixType& from) {
  const InputMatrix m{call.n, call.ia, call.ja, call.a};
  const auto n = static_cast<std::size_t>(m.n);
  Vector<std::int64_t> count(n + 1, 0);
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i]; p < m.ia[i + 1]; ++p) {
      ++count[static_cast<std::size_t>(i) + 1];
      if (m.ja[p - 1] != i + 1) ++count[static_cast<std::size_t>(m.ja[p - 1])];
    }
  std::partial_sum(count.begin(), count.end(), count.begin());
  if (count.back() >= std::numeric_limits<int>::max()) throw std::length_error("both triangles");
  ia_.resize(n + 1);
  std::ranges::transform(count, ia_.begin(),
                         [](std::int64_t c) { return static_cast<int>(c) + 1; });
  ja_.resize(static_cast<std::size_t>(count.back()));
  a_.resize(ja_.size() * static_cast<std::size_t>(from.nvals()));
  if (from.complex)
    write_out(m, from.hermitian, ia_, ja_, values_as<zcomplex>(a_.data()));
  else
    write_out(m, false, ia_, ja_, a_.data());
  matrix_ = {m.n, ia_.data(), ja_.data(), a_.data()};
}

int SecondFactor::run(const Call& call, int phase) {
  Call own;
  own.pt = handle_.data();
  own.maxfct = own.mnum = own.nrhs = 1;
  own.mtype = mtype_;
  own.phase = phase;
  own.n = call.n;
  own.a = matrix_.a;
  own.ia = matrix_.ia;
  own.ja = matrix_.ja;
  own.perm = call.perm;
  own.iparm = {iparm_.data(), 64};
  own.dparm = {dparm_.data(), 64};
  own.default_threads = call.default_threads;
  const int error = velmora_c(own);
  wanted_ = own.wanted;
  return error;
}

int SecondFactor::factor_freely(const Call& call) {
  int error = run(call, 11);
  if (error == error_matching) {  // no full matching: the diagonal as it stands
    iparm_[10] = iparm_[12] = 0;
    error = run(call, 11);
  }
  if (error != error_none) return error;
  void** const pt = handle_.data();
  const Structure& structure = *static_cast<const Structure*>(slot(pt, slot_structure));
  order_.resize(static_cast<std::size_t>(call.n));
  for (int k = 1; k <= call.n; ++k) order_[static_cast<std::size_t>(k - 1)] = structure.perm(k);
  const double most = least_operations + operations_factor * structure.figures.flops;
  const int status = lu_.factor({.type = matrix_type(mtype_),
                                 .matrix = matrix_,
                                 .matching = matching_of(pt),
                                 .order = order_.data(),
                                 .most_operations = most});
  release_analysis(pt);
  release_handle(pt);
  result_.perturbed = lu_.perturbed();
  return status == status_ok ? error_none : error_numeric;
}

int SecondFactor::factor(const Call& call, const Options& options,
                         const FactorSettings& settings) try {
  release();
  mtype_ = settings.mtype;
  free_ = settings.free_pivots;
  set_options(call, options, settings);
  matrix_ = {call.n, call.ia, call.ja, call.a};
  values_ = values_checksum(matrix_, options.type->nvals());
  if (options.symmetric && !matrix_type(mtype_).symmetric) expand(call, *options.type);
  if (free_) return factor_freely(call);
  const int error = run(call, 12);
  if (error == error_none) result_ = control_of(handle_.data()).results.factor;
  return error;
} catch (const AllocationFailure& failure) {
  wanted_ = failure.bytes;
  release();
  return error_memory;
} catch (const std::length_error&) {
  release();
  return error_overflow;
}

bool SecondFactor::is_of(const Call& call) const {
  // Every type that it may have has as many doubles a value as the caller's.
  const InputMatrix matrix{call.n, call.ia, call.ja, call.a};
  return values_checksum(matrix, matrix_type(mtype_).nvals()) == values_;
}

SolveStep SecondFactor::step(bool transpose) {
  if (free_)
    return [this, transpose](int nrhs, const double* in, double* out) {
      return lu_.solve(transpose, nrhs, in, out);
    };
  return [this, transpose](int nrhs, const double* in, double* out) {
    void** const pt = handle_.data();
    const Control& control = control_of(pt);
    SolveOptions options = solve_options(control.options);
    options.transpose = transpose && !options.type.symmetric;
    const Structure& structure = *static_cast<const Structure*>(slot(pt, slot_structure));
    provide_work(pt, solve_work_bytes(options, structure, nrhs));
    return solve_velmora(options, structure, matching_of(pt), factor_record(pt, 1)->lu, nrhs, in,
                         out, slot(pt, slot_work));
  };
}

}  // namespace vlm
