// SPDX-License-Identifier: BSD-3-Clause
/// Direct factorizations behind a small table of routines.
#include <strings.h>

#include <algorithm>
#include <cstdint>

#include "NORV/bridge/solver_velmora.hpp"

direct_factorization* direct_factorization_new(void) {
  return vlm::allocate_cleared<direct_factorization>(1);
}

direct_factorization* direct_factorize(smat* A) {
  direct_factorization* const f = norv_velmora_analyse(A);
  norv_velmora_factorize(f, A);
  return f;
}

direct_factorization* direct_factorize_using(smat* A, const char* name) {
  NORV_ASSERT(name != 0);
  if (strcasecmp(name, "VELMORA") == 0) return direct_factorize(A);
  _norv_print_error_msg("Direct solver %s not available!", name);
  return nullptr;
}

int direct_solve(direct_factorization* f, vec* x, const vec* b) {
  return f != nullptr ? f->solve(f, x, b) : -1;
}

int direct_solve_multiple_rhs(direct_factorization* f, vec* x, const vec* b, int nrhs) {
  return f != nullptr ? norv_velmora_solve_multiple_rhs(f, x, b, nrhs) : -1;
}

void direct_free(direct_factorization* f) {
  if (f == nullptr) return;
  if (f->free != nullptr)
    f->free(f);
  else
    norv_velmora_free(f);
}

int direct_fact_solve(smat* A, vec* x, const vec* b) {
  return direct_fact_solve_using(A, x, b, "VELMORA");
}

int direct_fact_solve_using(smat* A, vec* x, const vec* b, const char* name) {
  direct_factorization* const f = direct_factorize_using(A, name);
  const int result = direct_solve(f, x, b);
  direct_free(f);
  return result;
}

double direct_factor_entries(const direct_factorization* f) {
  if (f == nullptr || f->work == nullptr) return 0.0;
  const int count = static_cast<const vlm::DirectWork*>(f->work)->iparm[17];
  return count >= 0 ? count : -1000.0 * count;  // one beyond 32 bits is told in thousands
}

double direct_factor_kilobytes(const direct_factorization* f) {
  if (f == nullptr || f->work == nullptr) return 0.0;
  const int* const iparm = static_cast<const vlm::DirectWork*>(f->work)->iparm;
  return static_cast<double>(std::int64_t{iparm[15]} + iparm[16]);
}
