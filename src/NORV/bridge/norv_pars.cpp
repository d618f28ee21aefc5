// SPDX-License-Identifier: BSD-3-Clause
/// The parameter record, and the two records of the process.
#include <mutex>

#include "NORV/bridge/norv_interface.hpp"

NorvPars norvPars;
NorvInfo norvInfo;

namespace vlm {

void publish_records(const NorvPars& pars, const NorvInfo& info) {
  static constinit std::mutex turn;
  const std::lock_guard lock(turn);
  norvPars = pars;
  norvInfo = info;
}

}  // namespace vlm

int InitNorvPars(int mode, NorvPars* pars) {
  *pars = {};
  pars->method = 5;
  pars->maxiter = 190;
  pars->non_improvement = 25;
  pars->restart = 100;
  pars->epsilon = 1e-6;
  pars->precon = 5;
  pars->drop_tol = 0.01;
  pars->condest_strat = 3;
  pars->bk_fill = 1.0;
  pars->kappa = 50.0;
  pars->max_levels = 10;
  pars->min_level_size = 5000;
  pars->max_fill = 4.0;
  pars->schur_drop = 0.01;
  pars->pivot_1x1 = 1e-8;
  pars->pivot_2x2 = 0.616;
  pars->msglvl = 2;
  if (mode != 0) {
    pars->precon = 4;
    pars->epsilon = 1e-11;
    pars->drop_tol = 0.0;
    pars->schur_drop = 0.0;
  }
  return 1;
}

int SetNorvPars(NorvPars* pars, int method, int maxiter, int non_improvement, int restart,
                int stop_crit, int reserved, int rescale, int precon_code, int fill_max_mode,
                int msglvl, double epsilon, double drop_tol, int fill) {
  pars->method = method;
  pars->maxiter = maxiter;
  pars->non_improvement = non_improvement;
  pars->restart = restart;
  pars->stop_crit = stop_crit;
  pars->reserved = reserved;
  pars->rescale = rescale;
  pars->precon = precon_code;
  pars->fill_max_mode = fill_max_mode;
  pars->msglvl = msglvl;
  pars->epsilon = epsilon;
  pars->drop_tol = drop_tol;
  pars->max_fill = fill;
  return 1;
}

int FreeNorvPars(NorvPars* pars) {
  perm_free(pars->perm);
  vlm::release_block(pars->array);
  pars->perm = nullptr;
  pars->array = nullptr;
  return 1;
}
