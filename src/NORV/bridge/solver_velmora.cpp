// SPDX-License-Identifier: BSD-3-Clause
/// The direct solver as the iterative library calls it: through velmora() and nothing else.
///
/// Rows and columns of the matrix are shifted to base 1 for the time of each call.  What fails ends
/// the process with exit code 9, or the running call (NORV/corelib/faults.hpp).
#include "NORV/bridge/solver_velmora.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "base/clock.hpp"
#include "velmora.h"

namespace vlm {
namespace {

/// The arrays of a matrix with base 1 until the scope ends.
class FortranIndexing {
 public:
  explicit FortranIndexing(smat* A) : A_(A) { smat_to_fortran_indexing(A_); }
  ~FortranIndexing() { smat_to_c_indexing(A_); }
  FortranIndexing(const FortranIndexing&) = delete;
  FortranIndexing& operator=(const FortranIndexing&) = delete;

 private:
  smat* A_;
};

DirectWork& work_of(const direct_factorization* f) { return *static_cast<DirectWork*>(f->work); }

/// One call.  @return error
int call_velmora(DirectWork& work, int phase, const smat* A, int* perm, int nrhs, double* b,
                 double* x) {
  constexpr int one = 1, silent = 0;
  int error = 0;
  velmora(work.pt, &one, &one, &work.mtype, &phase, &work.n, A != nullptr ? A->a : nullptr,
          A != nullptr ? A->ia : nullptr, A != nullptr ? A->ja : nullptr, perm, &nrhs, work.iparm,
          &silent, b, x, &error, work.dparm);
  return error;
}

/// An option that is another one until the scope ends, also when the call throws.
class OptionForCall {
 public:
  OptionForCall(int& option, int value) : option_(option), before_(option) { option_ = value; }
  ~OptionForCall() { option_ = before_; }
  OptionForCall(const OptionForCall&) = delete;
  OptionForCall& operator=(const OptionForCall&) = delete;

 private:
  int& option_;
  const int before_;
};

/// What the ledger of a failed call does with a workspace.
void end_work(void* work) {
  call_velmora(*static_cast<DirectWork*>(work), -1, nullptr, nullptr, 0, nullptr, nullptr);
}

/// Ends the call or the process with the error of a step, and the direct solver's own words.
[[noreturn]] void fail(const char* step, int error) {
  char text[1024] = "";
  velmora_last_message(text, sizeof text);
  if (char* const end = std::strchr(text, '\n')) *end = '\0';
  const char* const separator = text[0] != '\0' ? "\n" : "";
  direct_solver_failed(error, "VELMORA error in %s: %d%s%s", step, error, separator, text);
}

int threads_from_environment() {
  const char* const threads = std::getenv("OMP_NUM_THREADS");
  if (threads == nullptr) {
    std::puts("\n[VELMORA/ML]>> Set OMP_NUM_THREADS by e.g. export OMP_NUM_THREADS=1\n");
    direct_solver_failed(0, "Set OMP_NUM_THREADS by e.g. export OMP_NUM_THREADS=1");
  }
  return static_cast<int>(std::strtol(threads, nullptr, 10));
}

void tell_factorization(const DirectWork& work) {
  const char* const text = work.mtype == -2  ? "    - Using Velmora  LDL^T  factorization."
                           : work.mtype == 6 ? "    - Using Velmora is_complex LDL^T factorization."
                                             : "    - Using Velmora  LU  factorization.";
  _norv_print_stat_msg("%s", text);
  switch (work.iparm[20]) {
    case 0:
      _norv_print_stat_msg("    - Pivoting:  Diagonal.");
      break;
    case 1:
      _norv_print_stat_msg("    - Pivoting:  Supernodal BK.");
      break;
    case 2:
      _norv_print_stat_msg("    - Pivoting:  BK + Matching.");
      break;
    default:
      break;
  }
}

/// Zeros of a diagonal matrix become the size of a perturbed pivot.  Base 0.
void mend_diagonal(const DirectWork& work, smat* A) {
  if (A->ia[A->m] != static_cast<int>(A->m)) return;
  const double pivot = std::pow(10.0, -work.iparm[9]);
  by_kind(A->is_complex, [&](auto kind) {
    using T = decltype(kind);
    T* const a = values_as<T>(A->a);
    for (unsigned i = 0; i < A->m; ++i) {
      if (a[i] != T{}) continue;
      a[i] = pivot;
      _norv_print_stat_msg(
          "Coarse Grid Diagonal Matrix is singularin row %i apply perturbation with %e", i, pivot);
    }
  });
}

/// x = A^-1 b for nrhs vectors; the solution is formed in `solution` and copied.
int solve(direct_factorization* f, vec* x, const vec* b, int nrhs, double* solution) {
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  NORV_ASSERT_TEXT(x->n == b->n, "sol->n == rhs->n");
  NORV_ASSERT_TEXT(x->n == f->A->n * static_cast<unsigned>(nrhs), "sol->n == A->n");
  NORV_ASSERT(x->is_complex == f->A->is_complex && b->is_complex == f->A->is_complex);
  int error = 0;
  {
    const FortranIndexing base_1(f->A);
    error = call_velmora(work_of(f), 33, f->A, f->perm != nullptr ? f->perm->p : nullptr, nrhs,
                         b->v, solution);
  }
  if (error != 0) fail("solution", error);
  std::copy_n(solution, b->n * doubles_per_value(b->is_complex), x->v);
  velmora_print_solv_stats(work_of(f).iparm);
  return 0;
}

/// The analysis.
/// @param prepare  changes the options; its array, unless it is null, is perm of the call
template <class F>
direct_factorization* analyse(smat* A, const perm* p, F prepare) {
  _norv_print_stat_msg("Analyse with VELMORA ...");
  const double start = timer_velmora();
  direct_factorization* const f = norv_velmora_setup(A, p);
  DirectWork& work = work_of(f);
  int* order = prepare(work);
  if (order == nullptr && f->perm != nullptr) order = f->perm->p;
  NORV_DEBUG("solver_velmora", "Calling VELMORA ...");
  int error = 0;
  {
    const FortranIndexing base_1(A);
    error = call_velmora(work, 11, A, order, 1, nullptr, nullptr);
  }
  if (error != 0) fail("analysis", error);
  _norv_print_stat_msg("VELMORA analysis  memory %d", work.iparm[14]);
  _norv_print_stat_msg("VELMORA structure memory %d", work.iparm[15]);
  _norv_print_stat_msg("VELMORA factor    memory %d", work.iparm[16]);
  _norv_print_stat_msg("VELMORA analysis took %f secs.", timer_velmora() - start);
  return f;
}

}  // namespace
}  // namespace vlm

using vlm::DirectWork;
using vlm::work_of;

void velmora_set_default(const smat* A, int* iparm, double* dparm, int* mtype) {
  std::fill_n(iparm, 64, 0);
  std::fill_n(dparm, 64, 0.0);
  const vlm::CallScope* const scope = vlm::running_scope();
  iparm[0] = 1;
  iparm[1] = 2;
  iparm[2] = scope != nullptr ? scope->threads : vlm::threads_from_environment();
  *mtype = A->is_complex ? (A->sym ? 6 : 13) : (A->sym ? -2 : 11);
  iparm[10] = iparm[12] = 1;
  iparm[17] = iparm[18] = -1;
  iparm[23] = iparm[24] = 1;
  iparm[34] = 10;
  if (A->sym) {
    iparm[9] = 8;
    iparm[20] = 1;
  } else {
    iparm[7] = 2;
    iparm[9] = 13;
  }
}

void velmora_set_custom_iparam(const char* string, int* iparm) {
  for (const char* at = string; *at != '\0';) {
    char* end = nullptr;
    const long index = std::strtol(at, &end, 10);
    if (end == at || *end != ':') {
      _norv_print_warn_msg("Invalid IPARM string.  Expected `:', found `%c'.", *end);
      return;
    }
    at = end + 1;
    const long value = std::strtol(at, &end, 10);
    if (end == at) {
      _norv_print_warn_msg("Invalid IPARM string.  Expected value, found `%c'.", *at);
      return;
    }
    if (index < 0 || index > 63) {
      _norv_print_warn_msg("Invalid IPARM string.  There is no iparam[%ld].", index);
      return;
    }
    _norv_print_stat_msg("Setting  iparam[%2d] = %d", static_cast<int>(index),
                         static_cast<int>(value));
    iparm[index] = static_cast<int>(value);
    at = end;
    if (*at == '\0') return;
    if (*at != ',') {
      _norv_print_warn_msg("Invalid IPARM string.  Expected `,', found `%c'.", *at);
      return;
    }
    ++at;
  }
}

direct_factorization* norv_velmora_setup(smat* A, const perm* p) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(A->m == A->n);
  direct_factorization* const f = direct_factorization_new();
  std::strcpy(f->name, "VELMORA");
  f->A = A;
  f->solve = norv_velmora_solve;
  f->free = norv_velmora_free;
  auto* const work = vlm::allocate_cleared<DirectWork>(1);
  f->work = work;
  velmora_set_default(A, work->iparm, work->dparm, &work->mtype);
  work->n = static_cast<int>(A->n);
  work->solution = vlm::allocate<double>(A->n * vlm::doubles_per_value(A->is_complex));
  if (p != nullptr && static_cast<unsigned>(p->n) == A->n) {
    f->perm = perm_copy_invert(nullptr, p);
    for (int i = 0; i < f->perm->n; ++i) ++f->perm->p[i];
    work->iparm[4] = 1;
  }
  vlm::enter_finalizer(work, vlm::end_work);
  return f;
}

direct_factorization* norv_velmora_analyse_iparam(smat* A, const perm* p, const char* custom) {
  return vlm::analyse(A, p, [custom](DirectWork& work) -> int* {
    if (custom != nullptr) velmora_set_custom_iparam(custom, work.iparm);
    return nullptr;
  });
}

direct_factorization* vlm::factorize_in_order(smat* A, Vector<int>& order) {
  direct_factorization* const f = analyse(A, nullptr, [&](DirectWork& work) {
    work.iparm[4] = order.empty() ? -1 : 1;
    if (order.empty()) {  // stays so for a diagonal matrix, which has no analysis
      order.resize(A->n);
      std::iota(order.begin(), order.end(), 1);
    }
    return order.data();
  });
  norv_velmora_factorize(f, A);
  return f;
}

direct_factorization* norv_velmora_analyse(smat* A) {
  return norv_velmora_analyse_iparam(A, nullptr, nullptr);
}

void norv_velmora_factorize(direct_factorization* f, smat* A) {
  NORV_ASSERT(f != 0);
  NORV_ASSERT(A != 0);
  DirectWork& work = work_of(f);
  NORV_ASSERT(static_cast<int>(A->n) == work.n);
  _norv_print_stat_msg("Factorization with VELMORA ...");
  const double start = vlm::timer_velmora();
  f->A = A;
  vlm::tell_factorization(work);
  vlm::mend_diagonal(work, A);
  int error = 0;
  {
    // A preconditioner that timing changes takes another number of iterations each time.
    const vlm::OptionForCall fixed_order(work.iparm[33],
                                         vlm::running_scope() != nullptr ? 1 : work.iparm[33]);
    const vlm::FortranIndexing base_1(A);
    error = vlm::call_velmora(work, 22, A, f->perm != nullptr ? f->perm->p : nullptr, 1, nullptr,
                              nullptr);
  }
  if (error != 0) vlm::fail("factorization", error);
  vlm::weigh_finalizer(&work, 1024 * (std::int64_t{work.iparm[15]} + work.iparm[16]));
  velmora_print_fact_stats(work.iparm);
  _norv_print_stat_msg("VELMORA factorization took %f secs.", vlm::timer_velmora() - start);
  const bool has_inertia = work.mtype == -2;
  A->npos = has_inertia ? work.iparm[21] : 0;
  A->nneg = has_inertia ? work.iparm[22] : 0;
  A->nperturbed = has_inertia ? work.iparm[13] : 0;
}

int norv_velmora_solve(direct_factorization* f, vec* x, const vec* b) {
  NORV_ASSERT(f != 0);
  return vlm::solve(f, x, b, 1, work_of(f).solution);
}

int norv_velmora_solve_trans(direct_factorization* f, vec* x, const vec* b) {
  NORV_ASSERT(f != 0);
  const vlm::OptionForCall transposed(work_of(f).iparm[11], 1);
  return norv_velmora_solve(f, x, b);
}

int norv_velmora_solve_multiple_rhs(direct_factorization* f, vec* x, const vec* b, int nrhs) {
  NORV_ASSERT(f != 0);
  NORV_ASSERT(nrhs > 0);
  NORV_ASSERT(b != 0);
  vlm::Buffer<double> solution(b->n * vlm::doubles_per_value(b->is_complex));
  return vlm::solve(f, x, b, nrhs, solution.data());
}

int norv_velmora_solve_iterative(direct_factorization* f, vec* x, const vec* b) {
  NORV_ASSERT(f != 0);
  NORV_DEBUG("solver_velmora", "Solve with CGS and Velmora preconditioner.");
  const double start = vlm::timer_velmora();
  const vlm::OptionForCall stabilised(work_of(f).iparm[3], -61);
  const int result = norv_velmora_solve(f, x, b);
  _norv_print_stat_msg("VELMORA solve took %f secs.", vlm::timer_velmora() - start);
  return result;
}

int norv_velmora_fact_solve(smat* A, vec* x, const vec* b) {
  direct_factorization* const f = norv_velmora_analyse(A);
  norv_velmora_factorize(f, A);
  const int result = norv_velmora_solve(f, x, b);
  norv_velmora_free(f);
  return result;
}

void norv_velmora_free(direct_factorization* f) {
  if (f == nullptr) return;
  if (f->work != nullptr) {
    vlm::remove_finalizer(f->work);
    vlm::end_work(f->work);
    vlm::release_block(work_of(f).solution);
    vlm::release_block(f->work);
  }
  perm_free(f->perm);
  vlm::release_block(f);
}

void velmora_print_fact_stats(const int* iparm) {
  _norv_print_stat_msg("   Peak memory usage:   %10d KByte",
                       std::max(iparm[14], iparm[15] + iparm[16]));
  _norv_print_stat_msg("   #nnz L+U:            %10d", iparm[17]);
  _norv_print_stat_msg("   Positive eigenvals:  %10d", iparm[21]);
  _norv_print_stat_msg("   Negative eigenvals:  %10d", iparm[22]);
  _norv_print_stat_msg("   Perturbed pivots:    %10d", iparm[13]);
}

void velmora_print_solv_stats(const int* iparm) {
  _norv_print_stat_msg("   Iter. ref. steps:    %10d", iparm[6]);
}
