// SPDX-License-Identifier: BSD-3-Clause
/// The least-squares problem of a first guess, see first_guess.hpp.
#include "solve/first_guess.hpp"

#include <algorithm>
#include <cmath>

#include "base/matrix_types.hpp"
#include "base/scalar.hpp"
#include "base/values.hpp"
#include "base/vector_primitives.hpp"

namespace vlm {
namespace {

/// An image that has lost this part of its norm to those before it adds rounding errors only.
constexpr double dependent = 1e-12;
/// A guess has to make the residual smaller by this factor, and counts for no more than the other.
constexpr double least_gain = 2, largest_gain = 1e16;

/// One column: x = X c with the least |b - A X c|, by the images W = A X = Q R, made orthonormal
/// one after the other.
template <class T>
class Projection {
 public:
  Projection(const GuessCall& call, int column)
      : threads_(call.product.nthreads),
        n_(static_cast<std::size_t>(call.product.matrix.n)),
        count_(call.earlier.count()),
        b_(values_as<T>(call.b) + n_ * static_cast<std::size_t>(column)),
        x_(values_as<T>(call.x) + n_ * static_cast<std::size_t>(column)),
        residual_(values_as<T>(call.residual) + n_ * static_cast<std::size_t>(column)),
        solutions_(values_as<T>(call.earlier.of_column(column))),
        images_(values_as<T>(call.work)) {
    amuxy_velmora(call.product, count_, call.earlier.of_column(column), call.work,
                  call.work + call.earlier.length() * static_cast<std::size_t>(count_));
  }

  /// @return norm of b over that of the residual
  double run() {
    std::copy_n(b_, n_, residual_);
    const double before = norm(b_);
    T part[EarlierSolutions::most] = {};
    for (int k = 0; k < count_; ++k)
      if (make_orthonormal(k)) part[k] = remove(image(k), residual_);
    const double gain = before / std::max(norm(residual_), before / largest_gain);
    if (!(gain >= least_gain)) {
      std::copy_n(b_, n_, residual_);
      std::fill_n(x_, n_, T{});
      return 1;
    }
    combine(part);
    return gain;
  }

 private:
  T* image(int k) const { return images_ + n_ * static_cast<std::size_t>(k); }

  double norm(const T* v) const {
    return std::sqrt(parallel_sum(n_, threads_, [=](std::size_t i) { return std::norm(v[i]); }));
  }

  /// Takes the part along the unit vector q out of v.  @return that part
  T remove(const T* q, T* v) const {
    const T part = parallel_sum(
        n_, threads_, [=](std::size_t i) { return product(maybe_conj<true>(q[i]), v[i]); });
    parallel_sum(n_, threads_, [=](std::size_t i) {
      v[i] -= product(part, q[i]);
      return 0.0;
    });
    return part;
  }

  /// Image k without the parts along those before it.  @return false where nothing is left
  bool make_orthonormal(int k) {
    T* const w = image(k);
    const double whole = norm(w);
    for (int l = 0; l < k; ++l)
      if (size_[l] > 0) r_[l][k] = remove(image(l), w);
    const double left = norm(w);
    size_[k] = left > dependent * whole && std::isfinite(whole) ? left : 0;
    if (size_[k] == 0) return false;
    parallel_sum(n_, threads_, [=, scale = 1 / left](std::size_t i) {
      w[i] *= scale;
      return 0.0;
    });
    return true;
  }

  /// x = X c with R c = part.
  void combine(T* c) {
    const T* solution[EarlierSolutions::most] = {};
    int taken = 0;  // back from the last one
    for (int k = count_ - 1; k >= 0; --k) {
      if (size_[k] == 0) continue;
      const T factor = c[k] / size_[k];
      for (int l = 0; l < k; ++l) c[l] -= product(r_[l][k], factor);
      solution[taken] = solutions_ + n_ * static_cast<std::size_t>(k);
      factors_[taken++] = factor;
    }
    parallel_sum(n_, threads_, [=, this](std::size_t i) {
      T sum{};
      for (int k = 0; k < taken; ++k) add_product(sum, factors_[k], solution[k][i]);
      x_[i] = sum;
      return 0.0;
    });
  }

  const int threads_;
  const std::size_t n_;
  const int count_;
  const T* const b_;
  T *const x_, *const residual_;
  const T* const solutions_;
  T* const images_;
  T r_[EarlierSolutions::most][EarlierSolutions::most] = {};  ///< above the diagonal of R
  double size_[EarlierSolutions::most] = {};                  ///< its diagonal; 0: not taken
  T factors_[EarlierSolutions::most] = {};                    ///< of the solutions that are taken
};

}  // namespace

void EarlierSolutions::provide(std::size_t length, int nrhs, bool transpose, std::size_t bytes) {
  const std::size_t one = length * static_cast<std::size_t>(nrhs);
  const int room = static_cast<int>(
      std::min<std::size_t>(most, bytes / sizeof(double) / std::max<std::size_t>(one, 1)));
  if (length == length_ && nrhs == nrhs_ && transpose == transpose_ && room == room_) return;
  forget();
  values_ = Vector<double>(one * static_cast<std::size_t>(room));
  length_ = length;
  nrhs_ = nrhs;
  room_ = room;
  transpose_ = transpose;
}

void EarlierSolutions::note_guess(bool gained) {
  constexpr int longest_rest = 8;
  rest_ = gained ? 0 : std::min(1 << std::min(failures_, 8), longest_rest) + 1;
  failures_ = gained ? 0 : failures_ + 1;
}

void EarlierSolutions::keep(const double* x) {
  rest_ = std::max(rest_ - 1, 0);
  if (room_ == 0) return;
  for (int j = 0; j < nrhs_; ++j)
    std::copy_n(x + static_cast<std::size_t>(j) * length_, length_,
                values_.data() + (static_cast<std::size_t>(j) * static_cast<std::size_t>(room_) +
                                  static_cast<std::size_t>(next_)) *
                                     length_);
  count_ = std::min(count_ + 1, room_);
  next_ = (next_ + 1) % room_;
}

std::size_t guess_bytes(const SparseProduct& product, const EarlierSolutions& earlier) {
  return earlier.length() * static_cast<std::size_t>(earlier.count()) * sizeof(double) +
         amuxy_work_bytes(product.matrix.n, product.mtype, product.transpose, product.nthreads);
}

bool guess(const GuessCall& call) {
  bool gained = false;
  for (int j = 0; j < call.nrhs; ++j) {
    call.gain[j] = matrix_type(call.product.mtype).complex ? Projection<zcomplex>(call, j).run()
                                                           : Projection<double>(call, j).run();
    gained = gained || call.gain[j] > 1;
  }
  return gained;
}

}  // namespace vlm
