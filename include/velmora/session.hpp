// SPDX-License-Identifier: BSD-3-Clause
/// One handle of the library with its matrix: the calls behind velm::Solver.
#ifndef VELMORA_SESSION_HPP
#define VELMORA_SESSION_HPP

#include <array>
#include <exception>

#include "velmora/storage.hpp"

namespace velm {
namespace detail {

template <class M>
using bare = std::remove_cv_t<std::remove_reference_t<M>>;

template <class M>
struct IsView : std::false_type {};
template <class T, class I>
struct IsView<MatrixView<T, I>> : std::true_type {};

/// Scalar of a matrix object; no type where it is none.
template <class M>
using matrix_scalar = bare<decltype(*view_of(std::declval<const bare<M>&>()).value)>;

/// An object that is about to go, with its arrays.
template <class M>
inline constexpr bool is_temporary = !std::is_lvalue_reference_v<M> && !IsView<bare<M>>::value;

template <class T>
Options for_scalar(Options options) {
  if (std::is_same_v<T, float>) options.single_precision = true;
  return options;
}

template <class T, class S>
Compressed<T> narrowed(Compressed<S>&& in) {
  if constexpr (std::is_same_v<T, S>) {
    return std::move(in);
  } else {
    return {in.n, std::move(in.start), std::move(in.index),
            std::vector<T>(in.value.begin(), in.value.end()), in.layout};
  }
}

/// All entries of a symmetric or Hermitian matrix from its upper triangle.
template <class S>
Compressed<S> both_triangles(const Compressed<S>& upper, bool hermitian) {
  Sorted half;
  half.start.assign(upper.start.begin(), upper.start.end());
  half.index = upper.index;
  for (std::size_t p = 0; p < upper.index.size(); ++p)
    half.source.push_back(static_cast<std::int64_t>(p));
  const Sorted lower = transpose(upper.n, half);
  Compressed<S> out{upper.n, {0}, {}, {}, upper.layout};
  for (int i = 0; i < upper.n; ++i) {
    for (auto p = lower.start[i]; p < lower.start[i + 1]; ++p)
      if (lower.index[p] != i) {
        const S value = upper.value[lower.source[p]];
        out.index.push_back(lower.index[p]);
        out.value.push_back(hermitian ? conjugate(value) : value);
      }
    out.index.insert(out.index.end(), upper.index.begin() + upper.start[i],
                     upper.index.begin() + upper.start[i + 1]);
    out.value.insert(out.value.end(), upper.value.begin() + upper.start[i],
                     upper.value.begin() + upper.start[i + 1]);
    out.start.push_back(static_cast<int>(out.index.size()));
  }
  return out;
}

/// Handle, control vectors and matrix of one solver.
template <class S>
class Session {
 public:
  Storage<S> storage;
  Accuracy accuracy;

  explicit Session(Options options) : options_(std::move(options)) {}
  ~Session() { release(); }
  Session(Session&&) = delete;  // the library knows where its handle lies

  int iparm(int number) const { return iparm_.at(static_cast<std::size_t>(number) - 1); }
  double dparm(int number) const { return dparm_.at(static_cast<std::size_t>(number) - 1); }

  void listen(Listener listener) {
    listener_ = std::move(listener);
    attach();
  }

  template <class T, class I>
  void analyse(const MatrixView<T, I>& matrix, bool temporary) {
    release();
    analysed_ = factored_ = false;
    storage.take(matrix, options_.kind, options_.own || temporary);
    if (options_.keep < 0 || options_.keep >= storage.n) refuse("keep is not between 0 and n - 1");
    configure();
    call(11);
    analysed_ = true;
  }

  template <class T, class I>
  void renew(const MatrixView<T, I>& matrix, bool temporary) {
    if (!analysed_) refuse("there is no analysis yet");
    factored_ = false;
    storage.renew(matrix, options_.own || temporary);
  }

  /// Factors; a matrix that was only presumed to be definite goes on as indefinite.
  void factor() {
    if (!analysed_) refuse("there is no analysis yet");
    factored_ = false;
    accuracy = {};
    condition_known_ = false;
    require_memory();
    try {
      call(22);
    } catch (const Error& failed) {
      if (failed.code() != -4 || storage.kind != Kind::positive_definite ||
          options_.kind != Kind::automatic)
        throw;
      release();
      analysed_ = false;
      storage.give_up_definite();
      configure();
      call(11);
      analysed_ = true;
      require_memory();
      call(22);
    }
    factored_ = has_memory_ = true;
  }

  void solve(Span<const S> b, Span<S> x, Operation operation) {
    const int nrhs = columns_of(b.size());
    if (x.size() != b.size()) refuse("x is not as long as b");
    const bool in_place = x.data() == b.data();
    const auto [transposed, conjugated] = way_of(operation);
    entry(12) = transposed ? 1 : 0;
    entry(26) = 0;
    std::vector<S> copy;
    if (conjugated || in_place) {
      copy.assign(b.begin(), b.end());
      if (conjugated)
        for (S& value : copy) value = conjugate(value);
    }
    // The library keeps b: iparm(6) is 0.
    S* const rhs = copy.empty() ? const_cast<S*>(b.data()) : copy.data();
    int error = try_call(33, storage.a(), rhs, x.data(), nrhs);
    if (error == -4 && options_.old_factor > 0) {  // the kept factor did not serve
      entry(20) = -1;
      call(22);
      error = try_call(33, storage.a(), rhs, x.data(), nrhs);
    }
    if (error == 0 && suspicious()) {
      condition_known_ = true;
      const int level = std::exchange(entry(40), 2);
      error = try_call(33, storage.a(), rhs, x.data(), nrhs);
      note_accuracy();
      entry(40) = level;
    } else {
      note_accuracy();
    }
    if (conjugated)
      for (S& value : x) value = conjugate(value);
    judge(33, error);
  }

  std::vector<S> step(const std::vector<S>& b, int which) {
    if (options_.keep == 0) refuse("there is no Schur complement: Options::keep is 0");
    if (columns_of(b.size()) != 1) refuse("one right-hand side is taken");
    std::vector<S> in = b, out(b.size());
    entry(12) = storage.turned ? 1 : 0;
    entry(26) = which;
    const int error = try_call(33, storage.a(), in.data(), out.data(), 1);
    entry(26) = 0;
    judge(33, error);
    return out;
  }

  Inertia inertia() const {
    need_factor();
    if (!is_triangular(storage.kind) || type() == 6)
      refuse("matrices of this kind have no inertia");
    return {iparm(22), iparm(23), iparm(44)};
  }

  double log_determinant() const {
    need_factor();
    if (options_.keep > 0 || storage.entries() != static_cast<std::size_t>(storage.n))
      return dparm(33);
    double sum = 0;  // a diagonal system has no factor
    for (int k = 0; k < storage.n; ++k) sum += std::log(std::abs(storage.a()[k]));
    return sum;
  }

  Compressed<S> inverse() {
    need_factor();
    const bool half = is_triangular(storage.kind);
    const std::size_t n = static_cast<std::size_t>(storage.n), count = storage.entries();
    std::vector<int> ia(storage.ia(), storage.ia() + n + 1), ja(storage.ja(), storage.ja() + count);
    std::vector<S> a(storage.a(), storage.a() + count);
    if (half) {
      ja.resize(2 * count - n);
      a.resize(2 * count - n);
    }
    entry(36) = 1;
    entry(37) = half ? 1 : 0;
    const int error = try_call(-22, a.data(), nullptr, nullptr, 1, ia.data(), ja.data());
    judge(-22, error);
    for (int& i : ia) --i;
    for (int& j : ja) --j;
    return {storage.n, std::move(ia), std::move(ja), std::move(a),
            storage.turned ? Layout::columns : Layout::rows};
  }

  Compressed<S> schur() {
    need_factor();
    if (options_.keep == 0) refuse("there is no Schur complement: Options::keep is 0");
    const std::size_t rows = static_cast<std::size_t>(options_.keep);
    if (iparm(39) < 0) refuse("the Schur complement has more entries than 32 bits can count");
    const std::size_t count = static_cast<std::size_t>(iparm(39));
    Compressed<S> out{options_.keep, std::vector<int>(rows + 1), std::vector<int>(count),
                      std::vector<S>(count), storage.turned ? Layout::columns : Layout::rows};
    const int one = 1, mtype = type();
    velmora_schur(handle_.data(), &one, &one, &mtype, reinterpret_cast<double*>(out.value.data()),
                  out.start.data(), out.index.data());
    if (!Message().text.empty()) fail(-1);
    for (int& start : out.start) --start;
    for (int& index : out.index) --index;
    if (!is_triangular(storage.kind)) return out;
    return both_triangles(out, is_hermitian());
  }

  Figures figures() const {
    const int nonzeros = iparm(18);
    return {nonzeros < 0 ? std::int64_t{-1000} * nonzeros : nonzeros,
            iparm(19),
            iparm(14),
            iparm(15),
            iparm(17),
            iparm(3)};
  }

 private:
  int& entry(int number) { return iparm_.at(static_cast<std::size_t>(number) - 1); }
  int type() const { return type_number(storage.kind, Scalar<S>::complex); }
  bool is_hermitian() const { return type() == 4 || type() == -4; }
  void need_factor() const {
    if (!factored_) refuse("there is no factor yet");
  }

  int columns_of(std::size_t length) const {
    need_factor();
    const auto n = static_cast<std::size_t>(storage.n);
    if (length == 0 || length % n != 0 || length / n > static_cast<std::size_t>(INT32_MAX))
      refuse("b has " + std::to_string(length) + " entries, which is no multiple of " +
             std::to_string(n));
    return static_cast<int>(length / n);
  }

  /// Whether the stored matrix is to be transposed, and b and x conjugated.
  std::pair<bool, bool> way_of(Operation operation) const {
    if (operation == Operation::plain) return {storage.turned, false};
    const bool adjoint = operation == Operation::adjoint, complex = Scalar<S>::complex;
    if (!is_triangular(storage.kind)) return {!storage.turned, adjoint && complex};
    return {false, complex && adjoint != is_hermitian()};
  }

  /// Defaults of the type, then what the options say.
  void configure() {
    const int mtype = type(), solver = 0;
    int error = 0;
    iparm_.fill(0);
    velmorainit(handle_.data(), &mtype, &solver, iparm_.data(), dparm_.data(), &error);
    attach();
    const Options& o = options_;
    const bool indefinite = mtype == -2 || mtype == -4 || mtype == 6, general = mtype > 10;
    const bool definite = mtype == 2 || mtype == 4, whole = o.keep == 0;
    entry(2) = static_cast<int>(o.ordering);
    entry(3) = o.threads;
    entry(4) = o.old_factor;
    entry(33) = 1;
    entry(34) = o.fixed_order ? 1 : 0;
    entry(38) = whole ? 0 : storage.n - o.keep;
    entry(40) = whole ? std::max(0, o.accuracy) : 0;
    entry(29) = o.single_precision && (mtype == 1 || mtype == -2 || mtype == 11) ? 1 : 0;
    if (o.robust) {
      if (whole && !o.fixed_order) {
        entry(40) = std::max(1, o.accuracy);
        entry(42) = o.old_factor == 0 ? 1 : 0;  // a new factor is what helps an old one
      }
      if (!definite) entry(8) = 10;
      if (indefinite) entry(21) = 1;
      if (indefinite && storage.has_zero_diagonal()) {
        entry(11) = 1;
        entry(13) = 2;
      }
    }
    if (o.fixed_order) entry(8) = 0;
    if (o.refinement != automatic) entry(8) = o.refinement;
    if (o.perturbation != automatic) entry(10) = o.perturbation;
    const auto choose = [this](int number, Choice choice, int on) {
      if (choice != Choice::automatic) entry(number) = choice == Choice::on ? on : 0;
    };
    choose(11, o.scaling, 1);
    choose(13, o.matching, general ? 1 : 2);
    choose(21, o.pairs, 1);
    dparm_[43] = o.target;
    for (const auto& [number, value] : o.iparm) entry(number) = value;
    for (const auto& [number, value] : o.dparm)
      dparm_.at(static_cast<std::size_t>(number) - 1) = value;
  }

  /// The solution has small backward errors, but its condition had better be known.
  bool suspicious() const {
    return options_.robust && options_.accuracy == automatic && iparm(40) == 1 &&
           iparm(41) == Accuracy::nearby && !condition_known_;
  }

  void note_accuracy() {
    const bool measured = iparm(40) > 0 || iparm(42) > 0;
    accuracy = {measured ? static_cast<Accuracy::Verdict>(iparm(41)) : Accuracy::not_measured,
                dparm(40),
                dparm(41),
                dparm(42),
                dparm(43),
                iparm(43),
                iparm(7)};
    if (!measured) accuracy = {Accuracy::not_measured, 0, 0, 0, 0, 0, iparm(7)};
  }

  int try_call(int phase, const S* a, S* b, S* x, int nrhs, const int* ia = nullptr,
               const int* ja = nullptr) {
    const int one = 1, level = options_.verbose ? 1 : 0, mtype = type();
    int error = 0;
    velmora(handle_.data(), &one, &one, &mtype, &phase, &storage.n,
            reinterpret_cast<const double*>(a), ia != nullptr ? ia : storage.ia(),
            ja != nullptr ? ja : storage.ja(), nullptr, &nrhs, iparm_.data(), &level,
            reinterpret_cast<double*>(b), reinterpret_cast<double*>(x), &error, dparm_.data());
    if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
    return error;
  }

  void attach() { velmora_set_progress(handle_.data(), listener_ ? hear : nullptr, this); }

  /// No exception passes through the library: it waits here for the end of the call.
  static int hear(void* data, int phase, double share) {
    Session& self = *static_cast<Session*>(data);
    try {
      return self.listener_(static_cast<Phase>(phase), share) ? 0 : 1;
    } catch (...) {
      self.thrown_ = std::current_exception();
      return 1;
    }
  }

  /// A plain phase 33 tells its failure by a message only.
  void judge(int phase, int error) const {
    const bool told = iparm(40) > 0 || iparm(42) > 0 || iparm(4) != 0;
    if (error != 0) fail(error);
    if (phase == 33 && !told && !Message().text.empty()) fail(-4);
  }

  /// Once for each analysis; later factors take the place of the first.
  void require_memory() const {
    if (!options_.heed_memory || has_memory_) return;
    if (velmora_require_memory(iparm(17), nullptr) != 0) fail(-2);
  }

  void call(int phase) { judge(phase, try_call(phase, storage.a(), nullptr, nullptr, 1)); }

  void release() {
    has_memory_ = false;
    const int one = 1, quiet = 0, phase = -1, mtype = type();
    int error = 0;
    velmora(handle_.data(), &one, &one, &mtype, &phase, &storage.n, nullptr, nullptr, nullptr,
            nullptr, &one, iparm_.data(), &quiet, nullptr, nullptr, &error, dparm_.data());
  }

  Options options_;
  Listener listener_;
  std::exception_ptr thrown_;
  std::array<void*, 64> handle_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
  bool analysed_ = false, factored_ = false, condition_known_ = false, has_memory_ = false;
};

}  // namespace detail
}  // namespace velm

#endif
