// SPDX-License-Identifier: BSD-3-Clause
/// A row or column of an incomplete factor while it is formed: values in a dense vector, and the
/// positions that are taken in a list.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

#include "NORV/precons/lu_factor.hpp"

namespace vlm::norv {

template <class T>
class WorkLine {
 public:
  explicit WorkLine(int n)
      : value_(static_cast<std::size_t>(n), T{}),
        taken_(static_cast<std::size_t>(n), 0),
        position_(static_cast<std::size_t>(n)) {}

  int size() const { return size_; }
  /// The p-th position that was taken.
  int position(int p) const { return position_[p]; }
  T& operator[](int j) { return value_[j]; }

  void add(int j, T v) {
    take(j);
    value_[j] += v;
  }
  /// Takes `by` times a sparse line off.
  void subtract(T by, const int* index, const T* value, std::int64_t count) {
    // Copies of the members, which stores through these pointers could change otherwise.
    T* const values = value_.data();
    char* const taken = taken_.data();
    int* const position = position_.data();
    int size = size_;
    for (std::int64_t p = 0; p < count; ++p) {
      const int j = index[p];
      values[j] -= product(by, value[p]);
      if (taken[j] == 0) {
        taken[j] = 1;
        position[size++] = j;
      }
    }
    size_ = size;
  }
  void clear() {
    for (int p = 0; p < size_; ++p) {
      value_[position_[p]] = T{};
      taken_[position_[p]] = 0;
    }
    size_ = 0;
  }

 private:
  void take(int j) {
    if (taken_[j] != 0) return;
    taken_[j] = 1;
    position_[size_++] = j;
  }

  Vector<T> value_;
  Vector<char> taken_;
  Vector<int> position_;
  int size_ = 0;
};

/// The entries of a line that dropping left, until the largest of them go into a factor.
template <class T>
class KeptEntries {
 public:
  void clear() { entries_.clear(); }
  int size() const { return static_cast<int>(entries_.size()); }
  void push_back(int j, T v) { entries_.push_back({j, v}); }

  /// Appends them as a line, columns ascending: the `most` largest, all where that is negative, and
  /// times `by`.  @return largest entry of the line
  double append_to(Triangle<T>& to, int most, T by = T(1)) {
    if (most >= 0 && most < size()) limit(most);
    const auto ascending = [](const Entry& a, const Entry& b) { return a.j < b.j; };
    if (!std::is_sorted(entries_.begin(), entries_.end(), ascending))
      std::sort(entries_.begin(), entries_.end(), ascending);
    int* const index = to.index.extend(size());
    T* const value = to.value.extend(size());
    double largest = 0;
    for (int p = 0; p < size(); ++p) {
      index[p] = entries_[p].j;
      value[p] = product(entries_[p].v, by);
      largest = std::max(largest, magnitude(value[p]));
    }
    to.start.push_back(to.index.size());
    return largest;
  }

 private:
  struct Entry {
    int j;
    T v;
  };
  /// Sizes in their order as integers, which have one for what is no number, too.
  static std::uint64_t key(const T& v) { return std::bit_cast<std::uint64_t>(magnitude(v)); }

  void limit(int most) {
    if (most == 0) return entries_.clear();
    keys_.clear();
    for (const Entry& each : entries_) keys_.push_back(key(each.v));
    std::nth_element(keys_.begin(), keys_.begin() + (most - 1), keys_.end(), std::greater<>());
    const std::uint64_t least = keys_[most - 1];
    std::ptrdiff_t ties = most - std::count_if(keys_.begin(), keys_.begin() + most,
                                               [least](std::uint64_t k) { return k > least; });
    std::size_t kept = 0;
    for (const Entry& each : entries_) {
      const std::uint64_t k = key(each.v);
      if (k > least || (k == least && ties-- > 0)) entries_[kept++] = each;
    }
    entries_.resize(kept);
  }

  Vector<Entry> entries_;
  Vector<std::uint64_t> keys_;
};

}  // namespace vlm::norv
