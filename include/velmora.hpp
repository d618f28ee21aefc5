// SPDX-License-Identifier: BSD-3-Clause
/// Velmora for C++17, header only, over velmora.h.
///
///     velm::Solver solver(matrix);                 // analyses and factors
///     std::vector<double> x = solver.solve(b);
///
/// The matrix is any object that view_of() knows, or velm::rows(start, index, value) and
/// velm::columns(...) of three containers; its scalar is float, double or their complex ones.  The
/// names live in `velm`, because `velmora` is the name of the C function.
///
/// A solver reads the caller's arrays again in later calls where it did not have to copy them
/// (borrows()): they must then outlive it, unless Options::own is set or the matrix was handed
/// over as a temporary object.  A solver takes one call at a time; different solvers may work in
/// different threads.  All failures are velm::Error.
#ifndef VELMORA_HPP
#define VELMORA_HPP

#include <memory>

#include "velmora/session.hpp"

namespace velm {

/// Analysis and factor of one matrix.  Move-only.
template <class T>
class Solver {
 public:
  using Stored = typename detail::Scalar<T>::Stored;
  /// Starts, ends and indices of what a solver hands out count from 0.
  using Matrix = Compressed<T>;

  /// Empty: analyse() or compute() before anything else.
  Solver() : Solver(Options()) {}
  explicit Solver(Options options)
      : session_(std::make_unique<detail::Session<Stored>>(detail::for_scalar<T>(options))) {}
  /// Analyses and factors.
  template <class M, class = detail::matrix_scalar<M>>
  explicit Solver(M&& matrix, Options options = {}) : Solver(std::move(options)) {
    compute(std::forward<M>(matrix));
  }

  /// Orders the pattern and forms the structure of the factor; the values tell the kind.
  template <class M, class = detail::matrix_scalar<M>>
  void analyse(M&& matrix) {
    const auto& held = matrix;
    here().analyse(view_of(held), detail::is_temporary<M>);
  }
  /// Factors the values of the last analyse().
  void factor() { here().factor(); }
  /// analyse() and factor().
  template <class M, class = detail::matrix_scalar<M>>
  void compute(M&& matrix) {
    analyse(std::forward<M>(matrix));
    factor();
  }
  /// Factors other values on the pattern of the analysis.
  /// @throws Error where the pattern is another one, or the kind that was found no longer holds
  template <class M, class = detail::matrix_scalar<M>>
  void refactor(M&& matrix) {
    const auto& held = matrix;
    here().renew(view_of(held), detail::is_temporary<M>);
    here().factor();
  }

  /// Solves A X = B, A^T X = B or A^H X = B for one right-hand side or several, column by column.
  /// @param b  [n] or [n, k] in
  /// @param x  of the same length, out; may be b
  /// @throws Error also where the solution is useless
  void solve(Span<const T> b, Span<T> x, Operation operation = Operation::plain) {
    if constexpr (std::is_same_v<T, Stored>) {
      here().solve(b, x, operation);
    } else {
      std::vector<Stored> wide(b.begin(), b.end());
      here().solve(Span<const Stored>(wide), Span<Stored>(wide), operation);
      if (x.size() != b.size()) detail::refuse("x is not as long as b");
      for (std::size_t k = 0; k < wide.size(); ++k) x[k] = static_cast<T>(wide[k]);
    }
  }
  std::vector<T> solve(Span<const T> b, Operation operation = Operation::plain) {
    std::vector<T> x(b.size());
    solve(b, Span<T>(x), operation);
    return x;
  }

  /// Of symmetric and Hermitian kinds; with Options::keep, of the eliminated part.
  Inertia inertia() const { return here().inertia(); }
  /// log |det A|; with Options::keep, of the eliminated part.
  double log_determinant() const { return here().log_determinant(); }
  /// The entries of the inverse where A has entries, in the layout that the matrix came in; the
  /// factor stays.  With perturbed pivots it is the inverse of the perturbed matrix.
  Matrix inverse() { return detail::narrowed<T>(here().inverse()); }

  /// With Options::keep: A22 - A21 A11^-1 A12 of the kept unknowns, all its entries.
  Matrix schur() { return detail::narrowed<T>(here().schur()); }
  /// With Options::keep, one right-hand side: b2 - A21 A11^-1 b1 in the last entries of the result;
  /// replace them by the kept unknowns and hand all to expand().
  std::vector<T> condense(Span<const T> b) { return step(b, 1); }
  /// The whole solution from what condense() left, with the kept unknowns in the last entries.
  std::vector<T> expand(Span<const T> half) { return step(half, 2); }

  /// Of the last solve.
  const Accuracy& accuracy() const { return here().accuracy; }
  Figures figures() const { return here().figures(); }

  int size() const { return here().storage.n; }
  /// The kind in use, and why; Kind::automatic is resolved by the analysis, and a matrix that
  /// Cholesky finds not to be definite goes on without that promise.
  Kind kind() const { return here().storage.kind; }
  const std::string& reason() const { return here().storage.reason; }
  /// The caller's arrays are read in later calls.
  bool borrows() const { return here().storage.borrows(); }
  /// An entry by its number in velmora.h, as the last call left it.
  int iparm(int number) const { return here().iparm(number); }
  double dparm(int number) const { return here().dparm(number); }

 private:
  detail::Session<Stored>& here() const {
    if (!session_) detail::refuse("the solver was moved from");
    return *session_;
  }
  std::vector<T> step(Span<const T> b, int which) {
    const std::vector<Stored> in(b.begin(), b.end());
    const std::vector<Stored> out = here().step(in, which);
    return std::vector<T>(out.begin(), out.end());
  }

  std::unique_ptr<detail::Session<Stored>> session_;
};

template <class M, class = detail::matrix_scalar<M>>
Solver(M&&) -> Solver<detail::matrix_scalar<M>>;
template <class M, class = detail::matrix_scalar<M>>
Solver(M&&, Options) -> Solver<detail::matrix_scalar<M>>;

/// Solves one system.
template <class M, class T = detail::matrix_scalar<M>, class B>
std::vector<T> solve(const M& matrix, const B& b, const Options& options = {}) {
  Solver<T> solver(matrix, options);
  return solver.solve(Span<const T>(b));
}

}  // namespace velm

#endif
