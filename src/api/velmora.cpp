// SPDX-License-Identifier: BSD-3-Clause
/// Exported operations.
///
/// The table at the end lists every exported name, each a one-line forward to an inner routine.
/// The inner routines load the arguments, answer the queries and solve diagonal systems at
/// once; all else goes to the driver.  No exception crosses an exported function.
#include "velmora.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "base/residual.hpp"
#include "base/thread_guard.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/diag.hpp"
#include "driver/velmora_c.hpp"
#include "numeric/schur.hpp"

namespace vlm {
namespace {

/// Scalar argument; a null pointer counts as 0, as for an argument that the phase ignores.
int value_of(const int* argument) { return argument != nullptr ? *argument : 0; }

/// True when the system is diagonal and complete, and the call well formed: everything else is
/// the driver's to refuse.
bool takes_shortcut(const Call& call) {
  if (call.iparm(32) != 0 || !is_work_phase(call.phase) || !is_matrix_type(call.mtype))
    return false;
  if (call.n < 1 || call.ia == nullptr || contradicts_handle(call)) return false;
  if (call.ia[call.n] - 1 != call.n) return false;
  const bool solves = call.last_digit() == 3;
  if (call.phase != 11 && call.a == nullptr) return false;
  return !solves || (call.ja != nullptr && call.b != nullptr && call.x != nullptr);
}

/// Answers for a diagonal matrix without touching the handle.
int solve_at_once(const Call& call) {
  const View<int>& iparm = call.iparm;
  iparm(12) = -1;
  int error = 0;
  if (call.phase != 11) {
    const DiagonalSystem system{{call.n, call.ia, call.ja, call.a},
                                call.nrhs,
                                call.last_digit() == 3,
                                iparm(6) == 1,
                                call.b,
                                call.x};
    const ThreadGuard guard(iparm(3) < 1 ? count_threads() : iparm(3));
    error = is_complex_type(call.mtype) ? c_diag_velmora(system)
                                        : diag_velmora(system, iparm(22), iparm(23));
  }
  iparm(15) = iparm(16) = iparm(17) = iparm(20) = 0;
  iparm(18) = call.n;
  iparm(19) = call.n / 1000000;
  const bool plain = call.phase == 33 || call.phase == 23 || call.phase == 11;
  return plain && error != 0 ? error_internal : error;
}

void velmora_f(Call& call, int* error) {
  *error = 0;
  if (call.iparm.data() == nullptr) {
    *error = error_input;
    return;
  }
  if (takes_shortcut(call)) {
    *error = solve_at_once(call);
    return;
  }
  try {
    *error = velmora_c(call);
  } catch (...) {  // no memory even for a message
    *error = error_unclassified;
  }
  // A plain solve always succeeds for the caller; what went wrong shows in the messages.
  if (call.iparm(32) == 0 && call.phase == 33 && call.iparm(4) == 0) *error = 0;
}

void velmora_f(void** pt, const int* maxfct, const int* mnum, const int* mtype, const int* phase,
               const int* n, const double* a, const int* ia, const int* ja, int* perm,
               const int* nrhs, int* iparm, const int* msglvl, double* b, double* x, int* error,
               double* dparm) {
  switch (value_of(phase)) {
    case -2:
      *error = 18;
      iparm[0] = 23;
      return;
    case -3:
      *error = 500000;
      return;
    default:
      break;
  }
  Call call;
  call.pt = pt;
  call.maxfct = value_of(maxfct);
  call.mnum = value_of(mnum);
  call.mtype = value_of(mtype);
  call.phase = value_of(phase);
  call.n = value_of(n);
  call.a = a;
  call.ia = ia;
  call.ja = ja;
  call.perm = perm;
  call.nrhs = value_of(nrhs);
  call.iparm = {iparm, 64};
  call.msg = value_of(msglvl) != 0 ? 1 : 0;
  call.b = b;
  call.x = x;
  call.dparm = {dparm, 64};
  velmora_f(call, error);
}

/// Settings by matrix type.
void init_by_type(int mtype, View<int> iparm) {
  switch (mtype) {
    case 1:
    case 3:
      iparm(10) = 13;
      break;
    case -2:
      iparm(10) = 8;
      break;
    case -4:
    case 6:
      iparm(10) = 8;
      iparm(11) = iparm(21) = 1;
      iparm(13) = 2;
      break;
    case 11:
    case 13:
      iparm(8) = 2;
      iparm(10) = 12;
      iparm(11) = iparm(13) = 1;
      break;
    default:
      break;
  }
}

void velmorainit_f(void** pt, const int* mtype, const int* solver, int* iparm_array, double* dparm,
                   int* error) {
  *error = 0;
  std::fill_n(pt, 64, nullptr);
  const View<int> iparm(iparm_array, 64);
  iparm(1) = 1;
  iparm(2) = 2;
  std::fill(iparm.at(4), iparm.end(), 0);
  const int asked = value_of(solver), type = value_of(mtype);
  if (asked == 10 || asked == 11) iparm(35) = 10;
  iparm(8) = 1;
  iparm(18) = iparm(19) = -1;
  iparm(24) = iparm(25) = 1;
  init_by_type(type, iparm);

  const bool iterative = asked == 1 || asked == 11;
  if (iterative && (type == -2 || type == 6 || type == 11)) {
    constexpr double limits[] = {300, 1e-6, 5000, 10, 0.01, 0.005, 10, 500, 25};
    iparm(32) = 1;
    std::fill_n(dparm, 64, 0.0);
    std::ranges::copy(limits, dparm);
  }
}

void velmora_residual_f(const int* mtype, const int* n, const double* a, const int* ia,
                        const int* ja, const double* b, const double* x, double* y, double* normb,
                        double* normr) {
  *normb = *normr = 0;
  const InputMatrix matrix{value_of(n), ia, ja, a};
  const int type = value_of(mtype);
  ResidualNorms norms;
  if (type == 2 || type == -2 || type == 11) {
    norms = velmora_residual_r(type, matrix, b, x, y);
  } else if (type == 6 || type == 13) {
    norms = velmora_residual_c(type, matrix, b, x, y);
  } else {
    std::puts("[VELMORA] This option is not yet available");
    std::exit(1);
  }
  *normb = norms.rhs;
  *normr = norms.residual;
}

void velmora_exist_parallel_f() {}
void velmora_ipopt_newinterface_f() {}

}  // namespace
}  // namespace vlm

// Exported names.  Each operation has four spellings that forward to the same routine.
#define VLM_EXPORT(lower, upper, parameters, forward) \
  void lower parameters { forward; }                  \
  void lower##_ parameters { forward; }               \
  void upper parameters { forward; }                  \
  void upper##_ parameters { forward; }

extern "C" {

const char* velmora_version(void) { return VELMORA_VERSION_STRING; }

VLM_EXPORT(velmora, VELMORA,
           (void** pt, const int* maxfct, const int* mnum, const int* mtype, const int* phase,
            const int* n, const double* a, const int* ia, const int* ja, int* perm, const int* nrhs,
            int* iparm, const int* msglvl, double* b, double* x, int* error, double* dparm),
           vlm::velmora_f(pt, maxfct, mnum, mtype, phase, n, a, ia, ja, perm, nrhs, iparm, msglvl,
                          b, x, error, dparm))

VLM_EXPORT(velmorainit, VELMORAINIT,
           (void** pt, const int* mtype, const int* solver, int* iparm, double* dparm, int* error),
           vlm::velmorainit_f(pt, mtype, solver, iparm, dparm, error))

VLM_EXPORT(velmora_residual, VELMORA_RESIDUAL,
           (const int* mtype, const int* n, const double* a, const int* ia, const int* ja,
            const double* b, const double* x, double* y, double* normb, double* normr),
           vlm::velmora_residual_f(mtype, n, a, ia, ja, b, x, y, normb, normr))

VLM_EXPORT(velmora_schur, VELMORA_SCHUR,
           (void** pt, const int* maxfct, const int* mnum, const int* mtype, double* s, int* is,
            int* js),
           vlm::velmora_schur_c(pt, vlm::value_of(maxfct), vlm::value_of(mnum),
                                vlm::value_of(mtype), s, is, js))

VLM_EXPORT(velmora_exist_parallel, VELMORA_EXIST_PARALLEL, (), vlm::velmora_exist_parallel_f())

VLM_EXPORT(velmora_ipopt_newinterface, VELMORA_IPOPT_NEWINTERFACE, (),
           vlm::velmora_ipopt_newinterface_f())

}  // extern "C"
