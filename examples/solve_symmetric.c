/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Solves a symmetric positive definite system in C, twice: the factor of the first solve serves
 * the second right-hand side.
 *
 *   cc solve_symmetric.c $(pkg-config --cflags --libs velmora) -lm
 */
#include <math.h>
#include <stdio.h>
#include <velmora.h>

#define N 5

/* Upper triangle, row after row, diagonal first; indices count from 1. */
static const int ia[N + 1] = {1, 4, 6, 8, 10, 11};
static const int ja[] = {1, 2, 4, 2, 3, 3, 5, 4, 5, 5};
static const double a[] = {4.0, -1.0, -1.0, 4.0, -1.0, 4.0, -1.0, 4.0, -1.0, 4.0};

/* Largest entry of b - A x, both triangles. */
static double residual(const double* b, const double* x) {
  double r[N], largest = 0.0;
  for (int i = 0; i < N; ++i) r[i] = b[i];
  for (int i = 0; i < N; ++i) {
    for (int k = ia[i] - 1; k < ia[i + 1] - 1; ++k) {
      const int j = ja[k] - 1;
      r[i] -= a[k] * x[j];
      if (i != j) r[j] -= a[k] * x[i];
    }
  }
  for (int i = 0; i < N; ++i) largest = fmax(largest, fabs(r[i]));
  return largest;
}

int main(void) {
  void* pt[64];
  int iparm[64] = {0};
  double dparm[64];
  int n = N, mtype = 2, solver = 0, maxfct = 1, mnum = 1, nrhs = 1, msglvl = 0, error = 0;
  double b[N] = {1.0, 2.0, 3.0, 4.0, 5.0}, x[N];
  int status = 0;

  velmorainit(pt, &mtype, &solver, iparm, dparm, &error);
  iparm[2] = 1; /* threads */

  int phase = 13; /* analyse, factor, solve */
  velmora(pt, &maxfct, &mnum, &mtype, &phase, &n, a, ia, ja, NULL, &nrhs, iparm, &msglvl, b, x,
          &error, dparm);
  if (error != 0 || residual(b, x) > 1e-12) {
    fprintf(stderr, "first solve: error %d, residual %g\n", error, residual(b, x));
    status = 1;
  }
  for (int i = 0; i < N; ++i) printf("x[%d] = %.15f\n", i + 1, x[i]);

  for (int i = 0; i < N; ++i) b[i] = 1.0;
  phase = 33; /* solve only */
  velmora(pt, &maxfct, &mnum, &mtype, &phase, &n, a, ia, ja, NULL, &nrhs, iparm, &msglvl, b, x,
          &error, dparm);
  if (error != 0 || residual(b, x) > 1e-12) {
    fprintf(stderr, "second solve: error %d, residual %g\n", error, residual(b, x));
    status = 1;
  }

  phase = -1; /* release all memory */
  velmora(pt, &maxfct, &mnum, &mtype, &phase, &n, NULL, NULL, NULL, NULL, &nrhs, iparm, &msglvl,
          NULL, NULL, &error, dparm);
  return error != 0 ? 1 : status;
}
