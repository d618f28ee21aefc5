// SPDX-License-Identifier: BSD-3-Clause
/// From the caller's arrays to those that the library reads: rows counted from 1 in ascending
/// order, the upper triangle alone of symmetric kinds, a full diagonal.
///
/// Arrays that are so already are borrowed; starts and indices, or values, are copied where only
/// they differ.  Everything is linear in the entries.
#ifndef VELMORA_STORAGE_HPP
#define VELMORA_STORAGE_HPP

#include <algorithm>
#include <cmath>
#include <limits>

#include "velmora/matrix.hpp"
#include "velmora/options.hpp"

namespace velm {
namespace detail {

/// Number of the type in velmora.h.
inline int type_number(Kind kind, bool complex) {
  switch (kind) {
    case Kind::positive_definite:
      return complex ? 4 : 2;
    case Kind::hermitian:
      return complex ? -4 : -2;
    case Kind::symmetric:
      return complex ? 6 : -2;
    case Kind::structurally_symmetric:
      return complex ? 3 : 1;
    default:
      return complex ? 13 : 11;
  }
}

/// Half of the matrix is stored.
inline bool is_triangular(Kind kind) {
  return kind == Kind::positive_definite || kind == Kind::symmetric || kind == Kind::hermitian;
}

/// Entries in the order of their rows and columns, with where they came from.
struct Sorted {
  std::vector<std::int64_t> start;   ///< [n+1] from 0
  std::vector<int> index;            ///< from 0, ascending in a row
  std::vector<std::int64_t> source;  ///< position in the caller's arrays
};

/// One pass of a counting sort: entries by their index, the row in its place.
inline Sorted transpose(int n, const Sorted& in) {
  Sorted out;
  out.start.assign(static_cast<std::size_t>(n) + 1, 0);
  for (const int j : in.index) ++out.start[static_cast<std::size_t>(j) + 1];
  for (std::size_t j = 0; j < static_cast<std::size_t>(n); ++j) out.start[j + 1] += out.start[j];
  out.index.resize(in.index.size());
  out.source.resize(in.index.size());
  std::vector<std::int64_t> next(out.start.begin(), out.start.end() - 1);
  for (int i = 0; i < n; ++i)
    for (std::int64_t p = in.start[i]; p < in.start[i + 1]; ++p) {
      const auto to = static_cast<std::size_t>(next[static_cast<std::size_t>(in.index[p])]++);
      out.index[to] = i;
      out.source[to] = in.source[p];
    }
  return out;
}

/// What a first look over the arrays finds.
struct Survey {
  bool sorted = true;                 ///< every line ascends strictly
  std::int64_t lower = 0, upper = 0;  ///< entries beside the diagonal, index below and above line
  int diagonal = 0;                   ///< lines that hold their diagonal entry
};

template <class T, class I>
Survey survey(const MatrixView<T, I>& m) {
  if (m.n < 1) refuse("the matrix is empty");
  const auto base = m.start[0];
  if (base != 0 && base != 1) refuse("the first start is neither 0 nor 1");
  Survey found;
  for (int i = 0; i < m.n; ++i) {
    if (m.start[i + 1] < m.start[i]) refuse("the starts decrease at line " + std::to_string(i));
    std::int64_t before = -1;
    bool diagonal = false;
    for (auto p = m.start[i] - base; p < m.start[i + 1] - base; ++p) {
      const auto j = static_cast<std::int64_t>(m.index[p]) - static_cast<std::int64_t>(base);
      if (j < 0 || j >= m.n)
        refuse("an index of line " + std::to_string(i) + " is outside of the matrix");
      found.sorted = found.sorted && j > before;
      before = j;
      found.lower += j < i;
      found.upper += j > i;
      diagonal = diagonal || j == i;
    }
    found.diagonal += diagonal;
  }
  return found;
}

/// All entries in order.
template <class T, class I>
Sorted in_order(const MatrixView<T, I>& m, bool sorted) {
  Sorted out;
  const auto base = m.start[0];
  for (int i = 0; i <= m.n; ++i) out.start.push_back(static_cast<std::int64_t>(m.start[i] - base));
  out.index.reserve(m.entries());
  for (std::size_t p = 0; p < m.entries(); ++p)
    out.index.push_back(static_cast<int>(m.index[p] - base));
  for (std::size_t p = 0; p < m.entries(); ++p) out.source.push_back(static_cast<std::int64_t>(p));
  return sorted ? out : transpose(m.n, transpose(m.n, out));
}

/// The matrix with its entries in order, those of one place summed.
template <class T, class I>
Compressed<T> merged(const MatrixView<T, I>& m) {
  const Sorted s = in_order(m, false);
  Compressed<T> out{m.n, {0}, {}, {}, m.layout};
  for (int i = 0; i < m.n; ++i) {
    const auto begin = static_cast<std::size_t>(out.start.back());
    for (auto p = s.start[i]; p < s.start[i + 1]; ++p) {
      const T& value = m.value[s.source[p]];
      if (out.index.size() > begin && out.index.back() == s.index[p]) {
        out.value.back() += value;
      } else {
        out.index.push_back(s.index[p]);
        out.value.push_back(value);
      }
    }
    out.start.push_back(static_cast<int>(out.index.size()));
  }
  return out;
}

/// What kind a matrix is of, and why.
struct Finding {
  Kind kind = Kind::general;
  std::string reason;
};

inline Finding find_kind(int n, bool complex, const int* start, const int* index,
                         const void* value) {
  const char* reason = "";
  switch (velmora_find_type(n, complex ? 1 : 0, 0, start, index, static_cast<const double*>(value),
                            &reason)) {
    case 0:
      throw Error(-2, "no memory to examine the matrix");
    case 2:
    case 4:
      return {Kind::positive_definite, reason};
    case -4:
      return {Kind::hermitian, reason};
    case -2:
    case 6:
      return {Kind::symmetric, reason};
    case 1:
    case 3:
      return {Kind::structurally_symmetric, reason};
    default:
      return {Kind::general, reason};
  }
}

/// The kind that suits the values; examined as it stands where the library can read it.
template <class T, class I>
Finding examine(const MatrixView<T, I>& m, bool sorted) {
  using S = typename Scalar<T>::Stored;
  if constexpr (std::is_same_v<T, S> && std::is_same_v<std::make_signed_t<I>, int>)
    if (sorted)
      return find_kind(m.n, Scalar<T>::complex, reinterpret_cast<const int*>(m.start),
                       reinterpret_cast<const int*>(m.index), m.value);
  const Compressed<T> copy = merged(m);
  const std::vector<S> values(copy.value.begin(), copy.value.end());
  return find_kind(m.n, Scalar<T>::complex, copy.start.data(), copy.index.data(), values.data());
}

/// The matrix in the library's form, and the way from the caller's values to it.
template <class S>
class Storage {
 public:
  int n = 0;
  Kind kind = Kind::general;
  std::string reason;
  bool turned = false;  ///< the rows are the columns of the caller's matrix

  Storage() = default;
  Storage(Storage&&) = delete;  // ia, ja and a may point into it

  const int* ia() const { return ia_; }
  const int* ja() const { return ja_; }
  const S* a() const { return a_; }
  std::size_t entries() const { return static_cast<std::size_t>(ia_[n] - 1); }
  /// The caller's arrays are read in later calls.
  bool borrows() const { return ia_ != own_ia_.data() || a_ != own_a_.data(); }

  /// Goes on without the presumption that the matrix is definite.
  void give_up_definite() {
    kind = Scalar<S>::complex ? Kind::hermitian : Kind::symmetric;
    reason = "Cholesky found that it is not definite";
  }

  /// Takes the matrix in.
  /// @param own  copy also what could be borrowed
  template <class T, class I>
  void take(const MatrixView<T, I>& m, Kind wanted, bool own) {
    const Survey found = survey(m);
    own_ia_.clear();
    own_ja_.clear();
    place_.clear();
    n = m.n;
    kind = wanted;
    checked_ = wanted == Kind::automatic;
    reason = "as asked for";
    if (wanted == Kind::automatic || wanted == Kind::structurally_symmetric) {
      const Finding finding = examine(m, found.sorted);
      if (wanted == Kind::automatic) {
        kind = finding.kind;
        reason = finding.reason;
      } else if (finding.reason == "the pattern is not symmetric") {
        refuse("the pattern is not symmetric");
      }
    }
    const bool half = is_triangular(kind);
    turned = m.layout == Layout::columns && !half;
    // The conjugate of what the library means by a row.
    const bool conjugated = hermitian() && (m.layout == Layout::columns) != (found.upper == 0);
    // n entries would be a permutation, fewer a singular matrix: its diagonal tells which.
    const bool full_diagonal =
        kind != Kind::general || m.entries() <= static_cast<std::size_t>(m.n);
    const bool moves = !found.sorted || (half && found.lower > 0) ||
                       (full_diagonal && found.diagonal < n) || (hermitian() && conjugated);
    fingerprint_ = fingerprint(m);
    if (moves)
      rearrange(m, half, half && found.upper == 0, found.lower > 0, conjugated, full_diagonal);
    else
      lay_out(m);
    if (!take_values(m, own))
      refuse("the values are not symmetric");  // not reached: checked kinds have been examined
  }

  /// Other values on the same pattern.
  /// @throws Error where the pattern is another one, or an automatic kind does not hold any more
  template <class T, class I>
  void renew(const MatrixView<T, I>& m, bool own) {
    if (m.n != n || fingerprint(m) != fingerprint_)
      refuse("the pattern is not that of the analysis");
    if (own_ia_.empty()) lay_out(m);
    if (!take_values(m, own))
      throw Error(-1, "the new values are not symmetric, as the analysed matrix was",
                  "analyse the matrix again, or name its kind");
  }

  /// A symmetric kind has a zero on its diagonal.
  bool has_zero_diagonal() const {
    if (!is_triangular(kind)) return false;
    for (int i = 0; i < n; ++i)
      if (a_[ia_[i] - 1] == S(0)) return true;
    return false;
  }

 private:
  bool hermitian() const {
    return Scalar<S>::complex && (kind == Kind::hermitian || kind == Kind::positive_definite);
  }

  template <class T, class I>
  static std::uint64_t fingerprint(const MatrixView<T, I>& m) {
    std::uint64_t sum = static_cast<std::uint64_t>(m.layout);
    const auto add = [&sum](std::uint64_t word) {
      sum = (sum ^ word) * 0x9E3779B97F4A7C15u;
      sum ^= sum >> 29;
    };
    for (int i = 0; i <= m.n; ++i) add(static_cast<std::uint64_t>(m.start[i]));
    for (std::size_t p = 0; p < m.entries(); ++p) add(static_cast<std::uint64_t>(m.index[p]));
    return sum;
  }

  static int narrow(std::size_t count) {
    if (count >= static_cast<std::size_t>(std::numeric_limits<int>::max()))
      refuse("the matrix has more entries than 32-bit positions can count");
    return static_cast<int>(count);
  }

  /// The lines are in order: starts and indices as they stand.
  template <class T, class I>
  void lay_out(const MatrixView<T, I>& m) {
    narrow(m.entries() + 1);
    if constexpr (std::is_same_v<std::make_signed_t<I>, int>) {
      if (m.start[0] == 1) {
        ia_ = reinterpret_cast<const int*>(m.start);
        ja_ = reinterpret_cast<const int*>(m.index);
        return;
      }
    }
    const auto base = m.start[0];
    const auto copy = [base](const I* from, std::size_t count, std::vector<int>& to) {
      to.resize(count);
      for (std::size_t k = 0; k < count; ++k) to[k] = static_cast<int>(from[k] - base) + 1;
      return to.data();
    };
    ia_ = copy(m.start, static_cast<std::size_t>(n) + 1, own_ia_);
    ja_ = copy(m.index, m.entries(), own_ja_);
  }

  /// Rows in order, with the diagonal, of the triangle or of all entries; place_ tells where each
  /// entry goes: its position, or -1 less that of the entry which it mirrors.
  template <class T, class I>
  void rearrange(const MatrixView<T, I>& m, bool half, bool from_lower, bool has_lower,
                 bool conjugated, bool full_diagonal) {
    Sorted s = in_order(m, false);
    const Sorted t = half ? transpose(n, s) : Sorted{};
    const Sorted& rows = from_lower ? t : s;
    conjugated_ = conjugated;
    place_.assign(m.entries(), 0);
    own_ia_.assign(1, 1);
    own_ja_.clear();
    for (int i = 0; i < n; ++i) {
      bool due = full_diagonal;
      const std::size_t begin = own_ja_.size();
      const auto put = [&](int j) {
        if (own_ja_.size() == begin || own_ja_.back() != j + 1) own_ja_.push_back(j + 1);
      };
      for (auto p = rows.start[i]; p < rows.start[i + 1]; ++p) {
        const int j = rows.index[p];
        if (half && j < i) continue;
        if (due && j >= i) put(i), due = false;
        put(j);
        place_[static_cast<std::size_t>(rows.source[p])] = narrow(own_ja_.size()) - 1;
      }
      if (due) put(i);
      own_ia_.push_back(narrow(own_ja_.size()) + 1);
    }
    if (half && !from_lower && has_lower) mirror(t);
    ia_ = own_ia_.data();
    ja_ = own_ja_.data();
  }

  /// Places of the entries below the diagonal: those of the entries that they mirror.
  void mirror(const Sorted& t) {
    const char* const why = "the pattern is not symmetric: only one of two triangles has an entry";
    std::size_t mirrored = 0;
    for (int i = 0; i < n; ++i) {
      int at = own_ia_[static_cast<std::size_t>(i)] - 1, last = at;
      for (auto p = t.start[i]; p < t.start[i + 1]; ++p) {
        const int j = t.index[p];  // the entry (j, i), below the diagonal for j > i
        if (j <= i) continue;
        while (at + 1 < own_ia_[static_cast<std::size_t>(i) + 1] &&
               own_ja_[static_cast<std::size_t>(at)] < j + 1)
          ++at;
        if (own_ja_[static_cast<std::size_t>(at)] != j + 1) refuse(why);
        mirrored += at != last;
        last = at;
        place_[static_cast<std::size_t>(t.source[p])] = -1 - at;
      }
    }
    if (mirrored + static_cast<std::size_t>(n) != own_ja_.size()) refuse(why);
  }

  /// The values to their places.  @return false where a kind that was found does not hold
  template <class T, class I>
  bool take_values(const MatrixView<T, I>& m, bool own) {
    const std::size_t count = m.entries();
    if (!place_.empty()) {
      scatter(m);
      return !checked_ || mirrors_agree(m);
    }
    if constexpr (std::is_same_v<T, S>) {
      if (!own) {
        a_ = m.value;
        return true;
      }
    }
    own_a_.assign(m.value, m.value + count);
    a_ = own_a_.data();
    if (own && own_ia_.empty()) {
      own_ia_.assign(ia_, ia_ + n + 1);
      own_ja_.assign(ja_, ja_ + count);
      ia_ = own_ia_.data();
      ja_ = own_ja_.data();
    }
    return true;
  }

  template <class T, class I>
  void scatter(const MatrixView<T, I>& m) {
    own_a_.assign(own_ja_.size(), S(0));
    for (std::size_t p = 0; p < place_.size(); ++p)
      if (place_[p] >= 0)
        own_a_[static_cast<std::size_t>(place_[p])] +=
            conjugated_ ? conjugate(S(m.value[p])) : S(m.value[p]);
    a_ = own_a_.data();
  }

  template <class T, class I>
  bool mirrors_agree(const MatrixView<T, I>& m) const {
    std::vector<S> other(own_a_.size(), S(0));
    bool any = false;
    for (std::size_t p = 0; p < place_.size(); ++p)
      if (place_[p] < 0) {
        const S value(m.value[p]);
        other[static_cast<std::size_t>(-1 - place_[p])] +=
            hermitian() != conjugated_ ? conjugate(value) : value;
        any = true;
      }
    if (!any) return true;
    for (int i = 0; i < n; ++i)
      for (int p = ia_[i] - 1; p < ia_[i + 1] - 1; ++p)
        if (ja_[p] != i + 1 && !(other[p] == own_a_[p]) && own_a_[p] == own_a_[p]) return false;
    return true;
  }

  const int *ia_ = nullptr, *ja_ = nullptr;
  const S* a_ = nullptr;
  std::vector<int> own_ia_, own_ja_, place_;
  std::vector<S> own_a_;
  bool conjugated_ = false, checked_ = false;
  std::uint64_t fingerprint_ = 0;
};

}  // namespace detail
}  // namespace velm

#endif
