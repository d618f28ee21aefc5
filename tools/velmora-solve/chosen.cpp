// SPDX-License-Identifier: BSD-3-Clause
#include "chosen.hpp"

#include <fmt/format.h>
#include <norv.h>
#include <omp.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "iterate.hpp"
#include "pairs.hpp"

namespace tool {
namespace {

struct Free {
  void operator()(smat* A) const { smat_free(A); }
  void operator()(precon* M) const { precon_free(M, -1); }
  void operator()(solver* s) const { solver_free(s); }
  void operator()(vec* x) const { vec_release(x); }
};
template <class Record>
using Own = std::unique_ptr<Record, Free>;
struct FreeView {
  void operator()(smat* A) const { std::free(A); }  // the arrays are somebody else's
};

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The routines end the process where memory runs out or a parameter is none: the user is told what
/// was going on.
class Watch {
 public:
  explicit Watch(const std::string& what) {
    static const bool registered = std::atexit(tell) == 0;
    if (registered) what_ = &what;
  }
  ~Watch() { what_ = nullptr; }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

 private:
  static void tell() {
    if (what_ == nullptr) return;
    std::fflush(stdout);
    std::fprintf(stderr,
                 "velmora-solve: %s ended with an error; --msglvl 1 writes it to "
                 "velmora-ml.out\n",
                 what_->c_str());
  }
  static inline const std::string* what_ = nullptr;
};

/// "NAME" or "NAME:i0=3,d0=0.01" into an instance with these parameters.
Own<precon> make_precon(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  Own<precon> M(precon_new_by_name(name.c_str()));
  if (M == nullptr) throw InputError("not enough memory for the preconditioner " + name);
  const PreconInfo* const info = find_precon(name);
  // Unknowns are single ones, and the number of constraints is guessed, unless told otherwise.
  if (info == find_precon("SMAGGR")) M->iparam[0] = 1;
  if (info == find_precon("SCHILDERS")) M->iparam[0] = -1;
  std::string rest = colon == std::string::npos ? "" : text.substr(colon + 1);
  while (!rest.empty()) {
    const std::size_t comma = rest.find(',');
    const std::string each = rest.substr(0, comma);
    rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
    const auto wrong = [&] {
      return InputError(fmt::format("'{}' is not iN=VALUE or dN=VALUE with N from 0 to {}", each,
                                    NORV_PRECON_IPARAMS - 1));
    };
    const char *at = each.data() + 1, *const end = each.data() + each.size();
    int place = 0;
    if (each.size() < 4 || (each[0] != 'i' && each[0] != 'd')) throw wrong();
    auto [equals, error] = std::from_chars(at, end, place);
    if (error != std::errc() || equals == end || *equals != '=' || place < 0 ||
        place >= NORV_PRECON_IPARAMS)
      throw wrong();
    const auto read = [&wrong, end, from = equals + 1](auto& to) {
      const auto [stop, fault] = std::from_chars(from, end, to);
      if (fault != std::errc() || stop != end) throw wrong();
    };
    each[0] == 'i' ? read(M->iparam[place]) : read(M->dparam[place]);
  }
  return M;
}

/// The matrix in the storage that is wanted, as a record with base 0; its transpose if asked for.
class Held {
 public:
  Held(Storage storage, const SparseMatrix& given, bool transposed)
      : matrix_(storage == Storage::all_entries && given.form != Form::full ? expanded(given)
                                                                            : given) {
    for (int& each : matrix_.ia) --each;
    for (int& each : matrix_.ja) --each;
    const auto n = static_cast<unsigned>(matrix_.n);
    const int type = (matrix_.form == Form::full ? 0 : 1) + (matrix_.complex ? 2 : 0);
    view_.reset(
        smat_new_from(n, n, matrix_.ia.data(), matrix_.ja.data(), matrix_.a.data(), type, 0));
    if (transposed && matrix_.form != Form::symmetric)
      transpose_.reset(smat_copy_trans(view_.get()));
  }

  smat* get() const { return transpose_ ? transpose_.get() : view_.get(); }

 private:
  SparseMatrix matrix_;
  std::unique_ptr<smat, FreeView> view_;
  Own<smat> transpose_;
};

struct Limits {
  double tolerance;
  int iterations = 10000;
};

/// dparm(1) and dparm(2) mean what they mean without a name; others have no say here.
Limits limits_of(const Options& options) {
  Limits limits{options.tolerance / 10};
  for (const auto& [number, value] : options.settings.dparm) {
    if (number == 1)
      limits.iterations = static_cast<int>(value);
    else if (number == 2)
      limits.tolerance = value;
    else
      throw InputError(
          fmt::format("dparm({}) does not reach --method and --preconditioner", number));
  }
  if (!options.settings.iparm.empty())
    throw InputError("--iparm does not reach --method and --preconditioner");
  return limits;
}

/// One right-hand side.  @return iterations
int run_method(const std::string& name, const Limits& limits, smat* A, precon* M, vec* x,
               const vec* b) {
  if (name == "LSQR") {
    lsqr(A, x, b, 0, 0, limits.tolerance, limits.tolerance, 0, limits.iterations);
    return -1;
  }
  const Own<solver> s(solver_new(name.c_str()));
  solver_set_maxiter(s.get(), limits.iterations);
  // Gauss-Seidel looks at the norm of the residual itself.
  solver_set_epsilon(s.get(),
                     name == "GS" ? limits.tolerance * vec_euclid_norm(b) : limits.tolerance);
  solver_set_precon(s.get(), M);
  return solver_solve(s.get(), A, x, b);
}

}  // namespace

std::string solve_as_chosen(const Options& options, const Printer& printer,
                            const SparseMatrix& matrix, const std::vector<double>& b, int nrhs,
                            Factor& factor, std::vector<double>& solution) {
  const Settings& settings = options.settings;
  const std::string given = settings.method;
  const MethodInfo& method = *find_method(!given.empty()                   ? given
                                          : matrix.form == Form::symmetric ? "SQMR"
                                                                           : "BICGSTAB");
  const std::string precon_text = settings.preconditioner;
  const std::string precon_name = precon_text.substr(0, precon_text.find(':'));
  const PreconInfo* const info = precon_name.empty() ? nullptr : find_precon(precon_name);
  const Limits limits = limits_of(options);
  const Storage storage = storage_for(method, info, matrix);
  if (settings.threads > 0) omp_set_num_threads(settings.threads);
  factor.threads = omp_get_max_threads();
  // What the direct solver asks for its threads.
  setenv("OMP_NUM_THREADS", std::to_string(factor.threads).c_str(), settings.threads > 0);
  if (options.msglvl > 0) norv_debug_set_level(1);
  factor.method = method.name;
  factor.preconditioner = info != nullptr ? info->name : "none";

  const Held held(storage, matrix, settings.transposed);
  smat* const A = held.get();
  const std::string what = info != nullptr ? fmt::format("{} with {}", method.name, info->name)
                                           : std::string(method.name);
  const Watch watch(what);
  Own<precon> M;
  if (info != nullptr) {
    M = make_precon(precon_text);
    if (info == find_precon("SCHILDERS") && M->iparam[0] < 0)
      M->iparam[0] = matrix.n - static_cast<int>(smat_guess_constraint_size(A));
    for (int k = 0; k <= options.refactor; ++k) {
      const double start = now();
      if (precon_setup(M.get(), A) == 0)
        return fmt::format("{} could not be set up; --msglvl 1 writes why to velmora-ml.out",
                           info->name);
      k == 0 ? void(factor.factorization_seconds = now() - start)
             : factor.refactor_seconds.push_back(now() - start);
    }
    factor.nonzeros = M->nnz;
    factor.perturbed = M->nperturbed;
    printer.line("setup", fmt::format("{}   {}, {} nonzeros, {} perturbed pivots",
                                      seconds(factor.factorization_seconds), info->name,
                                      factor.nonzeros, factor.perturbed));
  }
  const auto n = static_cast<unsigned>(matrix.n);
  const std::size_t column = b.size() / static_cast<std::size_t>(nrhs);
  solution.assign(b.size(), 0.0);
  const Own<vec> x(matrix.complex ? vec_new_cpx(n) : vec_new(n)),
      rhs(matrix.complex ? vec_new_cpx(n) : vec_new(n));
  int iterations = 0;
  const auto solve_all = [&] {
    const double start = now();
    for (int k = 0; k < nrhs; ++k) {
      const auto at = b.begin() + static_cast<std::ptrdiff_t>(column) * k;
      std::copy_n(at, column, rhs->v);
      vec_clear(x.get());
      iterations = run_method(method.name, limits, A, M.get(), x.get(), rhs.get());
      std::copy_n(x->v, column, solution.begin() + static_cast<std::ptrdiff_t>(column) * k);
    }
    return now() - start;
  };
  {
    Follower follower(printer);
    factor.solution_seconds = solve_all();
    factor.history = follower.history();
    if (!factor.history.empty()) follower.tell();
  }
  for (int k = 0; k < options.resolve; ++k) factor.resolve_seconds.push_back(solve_all());
  printer.line("solution", fmt::format("{}   {} right-hand side{}, {}",
                                       seconds(factor.solution_seconds), nrhs, nrhs == 1 ? "" : "s",
                                       iterations < 0 ? std::string(method.name)
                                                      : fmt::format("{} iterations of {}",
                                                                    iterations, method.name)));
  return {};
}

}  // namespace tool
