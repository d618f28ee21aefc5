// SPDX-License-Identifier: BSD-3-Clause
/// Exported operations.
///
/// The table at the end lists every exported name, each a one-line forward to an inner routine.
/// The inner routines load the arguments and answer the queries; all else goes to the driver.  No
/// exception crosses an exported function.
#include "velmora.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "api/process.hpp"
#include "base/progress.hpp"
#include "base/residual.hpp"
#include "base/thread_guard.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/error_info_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/invert.hpp"
#include "driver/options.hpp"
#include "driver/shortcut.hpp"
#include "driver/velmora_c.hpp"
#include "driver/velmora_schur_c.hpp"

namespace vlm {
namespace {

/// Scalar argument; a null pointer counts as 0, as for an argument that the phase ignores.
int value_of(const int* argument) { return argument != nullptr ? *argument : 0; }

/// Runs the driver.  @param error  what the caller gets, out
void run_call(Call& call, int& error) {
  try {
    forget_accuracy(call);
    if (takes_shortcut(call)) {
      error = solve_at_once(call);
      return;
    }
    const BlasLatch latch(call.last_digit() > 1 || call.phase == phase_inversion);
    const ListenerWords words = call.pt != nullptr ? listener_of(call.pt) : ListenerWords{};
    std::optional<Progress> progress;
    if (words.function != nullptr)
      progress.emplace(reinterpret_cast<Progress::Listener>(words.function), words.data);
    error = velmora_c(call);
    // A plain solve always succeeds for the caller, unless its accuracy is asked for; what went
    // wrong shows in the messages.
    const bool silent = call.iparm(32) == 0 && call.iparm(4) == 0 && !accuracy_asked(call);
    if (silent && call.phase == 33 && !call.insists) error = 0;
  } catch (...) {
    error = error_unclassified;
  }
}

void velmora_f(Call& call, int* error) {
  *error = error_input;
  if (call.iparm.data() == nullptr) {
    error_info_fc({error_input, code_null, 12, 0}, call);
    return;
  }
  const bool alone = !is_forked() || call.iparm(3) == 1;
  if (!alone && run_on_new_thread(run_call, call, *error)) return;
  const int threads = call.iparm(3);
  if (!alone) call.iparm(3) = 1;  // no other thread is to be had
  run_call(call, *error);
  if (!alone) call.iparm(3) = threads;
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
  call.dumps = &dump_counters();
  call.largest_analysis = &largest_analysis();
  call.default_threads = count_threads();
  velmora_f(call, error);
  // Where there was no memory for a message, the error stands for it.  A release that succeeds has
  // nothing to say about what failed before it.
  if (call.message.empty() && *error != 0)
    keep_message(error_text(*error));
  else if (call.phase > 0 || !call.message.empty())
    keep_message(call.message);
}

void last_message_f(char* text, int length) {
  if (text == nullptr || length < 1) return;
  const std::string_view kept = kept_message();
  const std::size_t room = static_cast<std::size_t>(length) - 1;
  *std::copy_n(kept.data(), std::min(kept.size(), room), text) = '\0';
}

void velmorainit_f(void** pt, const int* mtype, const int* solver, int* iparm, double* dparm,
                   int* error) {
  *error = 0;
  std::fill_n(pt, 64, nullptr);
  initial_settings(value_of(mtype), value_of(solver), {iparm, 64}, dparm);
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

/// The handle knows what maxfct and mtype would say again.
void velmora_schur_f(void** pt, const int* /*maxfct*/, const int* mnum, const int* /*mtype*/,
                     double* s, int* is, int* js) {
  const char* failed = velmora_schur_c(pt, value_of(mnum), s, is, js);
  keep_message(failed != nullptr ? failed : "");
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

void velmora_last_message(char* text, int length) { vlm::last_message_f(text, length); }

const char* velmora_error_text(int error) { return vlm::error_text(error); }

void velmora_set_progress(void** pt, velmora_progress_fn listener, void* data) {
  if (pt != nullptr) vlm::set_listener(pt, {reinterpret_cast<void*>(listener), data});
}

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
           vlm::velmora_schur_f(pt, maxfct, mnum, mtype, s, is, js))

VLM_EXPORT(velmora_exist_parallel, VELMORA_EXIST_PARALLEL, (), vlm::velmora_exist_parallel_f())

VLM_EXPORT(velmora_ipopt_newinterface, VELMORA_IPOPT_NEWINTERFACE, (),
           vlm::velmora_ipopt_newinterface_f())

}  // extern "C"
