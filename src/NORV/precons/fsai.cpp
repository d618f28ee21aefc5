// SPDX-License-Identifier: BSD-3-Clause
/// Factored sparse approximate inverse: which blocks in which order, see fsai.hpp.
#include "NORV/precons/fsai.hpp"

#include <limits>
#include <stdexcept>

#include "NORV/corelib/row_shares.hpp"
#include "NORV/precons/fsai_row.hpp"

namespace vlm::norv {
namespace {

template <class T>
class Builder {
 public:
  Builder(const Rows<T>& A, const FsaiOptions& options)
      : A_(A), options_(options), rows_(A, options) {
    const auto n = static_cast<std::size_t>(A.m);
    factor_.partner.assign(n, -1);
    factor_.d.assign(n, T{});
    factor_.e.assign(n, T{});
    factor_.G.row.reserve(n);
    factor_.G.start.assign(1, 0);
  }

  FsaiFactor<T> run() {
    const bool tries =
        options_.pivots == FsaiPivots::tried || options_.pivots == FsaiPivots::tried_monitored;
    for (int i = 0; i < A_.m; ++i) {
      if (rows_.taken(i) || waits(i)) continue;
      const int partner = options_.partner == nullptr || tries ? -1 : options_.partner[i];
      rows_.form(i, partner, block_);
      if (tries) try_pair(i);
      if (acceptable())
        accept();
      else
        put_off();
    }
    for (std::size_t k = 0; k < delayed_.size(); k += 2) {
      if (rows_.taken(delayed_[k])) continue;  // the partner of one that was tried
      rows_.form(delayed_[k], delayed_[k + 1], block_);
      accept();
    }
    factor_.pattern_seconds = rows_.pattern_seconds;
    factor_.build_seconds = rows_.build_seconds;
    factor_.solve_seconds = rows_.solve_seconds;
    transpose();
    return std::move(factor_);
  }

 private:
  bool waits(int i) const { return !waiting_.empty() && waiting_[i]; }

  /// Takes the pair with the strongest coupling where its pivot is the better one.
  void try_pair(int i) {
    constexpr double good_enough = 0.1;
    if (block_.quality >= good_enough) return;
    const int partner = rows_.partner_of(i);
    if (partner < 0 || waits(partner)) return;
    rows_.form(i, partner, pair_);
    if (pair_.quality > block_.quality) std::swap(pair_, block_);
  }

  bool acceptable() const {
    const bool small = !(block_.quality >= options_.pivot_eps),
               large = !(block_.growth <= options_.bound);
    switch (options_.pivots) {
      case FsaiPivots::given:
        return true;
      case FsaiPivots::given_delayed:
      case FsaiPivots::tried:
        return !small;
      case FsaiPivots::given_monitored:
        return !large;
      case FsaiPivots::tried_monitored:
        return !small && !large;
    }
    return true;
  }

  void put_off() {
    if (waiting_.empty()) waiting_.assign(static_cast<std::size_t>(A_.m), 0);
    for (int c = 0; c < block_.count; ++c) waiting_[block_.row[c]] = 1;
    delayed_.push_back(block_.row[0]);
    delayed_.push_back(block_.count == 2 ? block_.row[1] : -1);
    factor_.delayed += block_.count;
  }

  /// Takes the block, a bad pair as two single pivots.
  void accept() {
    if (block_.count == 2 && !(block_.quality >= options_.pivot_eps)) {
      ++factor_.bad_pairs;
      const int second = block_.row[1];
      rows_.form(block_.row[0], -1, block_);
      take();
      rows_.form(second, -1, block_);
    }
    take();
  }

  void take() {
    rows_.take(block_);
    if (block_.count == 1)
      take_single();
    else
      take_pair();
    InverseRows<T>& G = factor_.G;
    const std::size_t width = block_.pattern.size();
    for (int c = 0; c < block_.count; ++c) {
      G.row.push_back(block_.row[c]);
      for (std::size_t k = 0; k < width; ++k) {
        const T& entry = block_.g[static_cast<std::size_t>(c) * width + k];
        if (entry == T{}) continue;
        G.column.push_back(block_.pattern[k]);
        G.value.push_back(entry);
      }
      G.column.push_back(block_.row[c]);
      G.value.push_back(T(1));
      if (G.column.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        throw std::length_error("rows of an approximate inverse");
      G.start.push_back(static_cast<int>(G.column.size()));
    }
  }

  void take_single() {
    T d = block_.d11;
    const int i = block_.row[0];
    if (!(block_.quality >= options_.pivot_eps)) {
      NORV_DEBUG("precon_xfsai", "1x1 perturbation!!!");
      ++factor_.perturbed;
      const double least = options_.pivot_eps * rows_.weight(i) * rows_.weight(i);
      d = T(real_part(d) < 0 ? -least : least);
      if (least == 0) d = T(1);
    }
    factor_.d[i] = divide(T(1), d);
    count_sign(real_part(d) > 0);
  }

  void take_pair() {
    const int i = block_.row[0], j = block_.row[1];
    const T det = product(block_.d11, block_.d22) - product(block_.d21, block_.d21);
    factor_.partner[i] = j;
    factor_.partner[j] = i;
    factor_.d[i] = divide(block_.d22, det);
    factor_.d[j] = divide(block_.d11, det);
    factor_.e[i] = factor_.e[j] = divide(-block_.d21, det);
    ++factor_.pairs;
    count_sign(real_part(det) < 0 || real_part(block_.d11) > 0);
    count_sign(real_part(det) > 0 && real_part(block_.d11) > 0);
  }

  void count_sign(bool positive) { ++(positive ? factor_.npos : factor_.nneg); }

  void transpose() {
    const InverseRows<T>& G = factor_.G;
    InverseRows<T>& Gt = factor_.Gt;
    const auto n = static_cast<std::size_t>(A_.m);
    Gt.start.assign(n + 1, 0);
    Gt.column.resize(G.column.size());
    Gt.value.resize(G.value.size());
    for (const int j : G.column) ++Gt.start[j + 1];
    for (std::size_t j = 0; j < n; ++j) Gt.start[j + 1] += Gt.start[j];
    Vector<int> next(Gt.start.begin(), Gt.start.end() - 1);
    for (std::size_t k = 0; k < n; ++k)
      for (int at = G.start[k]; at < G.start[k + 1]; ++at) {
        const int put = next[G.column[at]]++;
        Gt.column[put] = G.row[k];
        Gt.value[put] = G.value[at];
      }
  }

  const Rows<T> A_;
  const FsaiOptions options_;
  FsaiRows<T> rows_;
  FsaiBlock<T> block_, pair_;
  FsaiFactor<T> factor_;
  Vector<int> delayed_;  ///< rows of blocks that wait, two a block
  Vector<char> waiting_;
};

}  // namespace

template <class T>
void InverseRows<T>::multiply(const T* x, T* y) const {
  const int n = static_cast<int>(start.size()) - 1;
  for_row_shares(start.data(), n, row_threads(start[n]), [&](int, int first, int last) {
    for (int k = first; k < last; ++k) {
      T sum{};
      for (int at = start[k]; at < start[k + 1]; ++at) sum += product(value[at], x[column[at]]);
      y[row.empty() ? k : row[k]] = sum;
    }
  });
}

template <class T>
FsaiFactor<T> factorize_fsai(const Rows<T>& A, const FsaiOptions& options) {
  return Builder<T>(A, options).run();
}

template <class T>
void apply(const FsaiFactor<T>& factor, const T* x, T* work, T* y) {
  factor.G.multiply(x, work);
  const int n = static_cast<int>(factor.d.size());
  for (int i = 0; i < n; ++i) {
    const int j = factor.partner[i];
    if (j < 0) {
      work[i] = product(factor.d[i], work[i]);
    } else if (i < j) {
      const T a = work[i], b = work[j];
      work[i] = product(factor.d[i], a) + product(factor.e[i], b);
      work[j] = product(factor.e[j], a) + product(factor.d[j], b);
    }
  }
  factor.Gt.multiply(work, y);
}

#define INSTANCES(T)                                                         \
  template struct InverseRows<T>;                                            \
  template FsaiFactor<T> factorize_fsai(const Rows<T>&, const FsaiOptions&); \
  template void apply(const FsaiFactor<T>&, const T*, T*, T*);
INSTANCES(double)
INSTANCES(zcomplex)
#undef INSTANCES

}  // namespace vlm::norv
