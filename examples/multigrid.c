/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Multigrid through norv.h: the temperature of a plate whose edge is held at zero.
 *
 * Builds a hierarchy from the matrix alone, solves with its cycles, and then once more with one
 * cycle as the preconditioner of a Krylov method.
 */
#define _POSIX_C_SOURCE 200112L
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "norv.h"

/* Five-point differences on edge x edge points, both triangles, columns rising. */
static smat* plate(int edge) {
  const unsigned n = (unsigned)(edge * edge);
  int* ia = malloc((n + 1) * sizeof *ia);
  int* ja = malloc(5 * n * sizeof *ja);
  double* a = malloc(5 * n * sizeof *a);
  if (ia == NULL || ja == NULL || a == NULL) exit(1);
  int k = 0;
  for (int i = 0; i < (int)n; ++i) {
    const int x = i % edge, y = i / edge;
    ia[i] = k;
    if (y > 0) ja[k] = i - edge, a[k++] = -1;
    if (x > 0) ja[k] = i - 1, a[k++] = -1;
    ja[k] = i, a[k++] = 4;
    if (x + 1 < edge) ja[k] = i + 1, a[k++] = -1;
    if (y + 1 < edge) ja[k] = i + edge, a[k++] = -1;
  }
  ia[n] = k;
  return smat_new_from(n, n, ia, ja, a, NORV_REAL_UNSYM, 0);
}

static double relative_residual(const smat* A, const vec* x, const vec* b) {
  vec* r = smat_calc_residual(NULL, A, x, b);
  const double result = vec_euclid_norm(r) / vec_euclid_norm(b);
  vec_release(r);
  return result;
}

int main(void) {
  setenv("OMP_NUM_THREADS", "1", 0); /* the coarsest level's direct solver wants to know */
  smat* A = plate(300);
  vec* b = vec_new(A->n);
  vec* x = vec_new_zero(A->n);
  vec_set(1.0, b); /* heated evenly */

  /* As a solver: cycles until the residual is small. */
  aml* h = amg_new();
  if (!amg_setup_matrix(h, A, 1)) return 1;
  const int cycles = amg_solve(h, x, b, 1e-10, 50);
  const double by_cycles = relative_residual(A, x, b);
  printf("AMG: %d levels, %d cycles, residual %.1e\n", h->num_levels, cycles, by_cycles);
  amg_free(h);

  /* As a preconditioner, here smoothed aggregation. */
  precon* M = precon_smaggr_create_param(1, 10, 500);
  if (!precon_setup(M, A)) return 1;
  solver* s = solver_new("SQMR");
  solver_set_precon(s, M);
  solver_set_epsilon(s, 1e-10);
  vec_clear(x);
  const int iterations = solver_solve(s, A, x, b);
  const double by_krylov = relative_residual(A, x, b);
  printf("SQMR with SMAGGR: %d iterations, residual %.1e\n", iterations, by_krylov);
  solver_free(s);
  precon_free(M, -1);

  const int ok = by_cycles < 1e-9 && by_krylov < 1e-9 && cycles < 50 && iterations < 50;
  free(A->ia), free(A->ja), free(A->a), free(A); /* the header alone is smat_new_from()'s */
  vec_release(b);
  vec_release(x);
  return ok ? 0 : 1;
}
