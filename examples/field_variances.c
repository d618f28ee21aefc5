/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Variances of a Gaussian field from its precision matrix: the diagonal of the inverse, by
 * selected inversion, for every node of a grid at once.
 *
 *   cc field_variances.c $(pkg-config --cflags --libs velmora) -lm
 */
#include <math.h>
#include <stdio.h>
#include <velmora.h>

enum { edge = 60, n = edge * edge, most = 3 * n };

static void* pt[64];
static int iparm[64];
static double dparm[64];
static int ia[n + 1], ja[most];
static double q[most], a[most], b[n], x[n];

/* Precision of a field whose values are tied to their neighbours and, weakly, to zero: the upper
 * triangle of kappa^2 I + Laplacian, diagonal first in each row, indices from 1. */
static void make_precision(double kappa) {
  int p = 0;
  for (int i = 0; i < n; ++i) {
    const int column = i % edge, row = i / edge;
    const int neighbours = (column > 0) + (column + 1 < edge) + (row > 0) + (row + 1 < edge);
    ia[i] = p + 1;
    ja[p] = i + 1;
    q[p++] = kappa * kappa + neighbours;
    if (column + 1 < edge) {
      ja[p] = i + 2;
      q[p++] = -1;
    }
    if (row + 1 < edge) {
      ja[p] = i + 1 + edge;
      q[p++] = -1;
    }
  }
  ia[n] = p + 1;
}

/* values receives the inverse in phase -22, and is only read in the others. */
static int call(int phase, double* values) {
  const int one = 1, quiet = 0, order = n, mtype = 2;
  int error = 0;
  velmora(pt, &one, &one, &mtype, &phase, &order, values, ia, ja, NULL, &one, iparm, &quiet, b, x,
          &error, dparm);
  if (error != 0) {
    char text[1024];
    velmora_last_message(text, sizeof text);
    fprintf(stderr, "phase %d: error %d\n%s\n", phase, error, text);
  }
  return error;
}

int main(void) {
  const int mtype = 2, direct = 0;
  int error = 0;
  iparm[2] = 1; /* threads */
  velmorainit(pt, &mtype, &direct, iparm, dparm, &error);
  make_precision(0.1);
  iparm[35] = 1; /* iparm(36): the factor is wanted again, below */
  for (int p = 0; p < ia[n] - 1; ++p) a[p] = q[p];
  if (call(12, q) != 0 || call(-22, a) != 0) return 1;

  /* The diagonal comes first in each row; beside it stand the covariances of neighbours. */
  const int middle = (edge / 2) * edge + edge / 2, corner = 0;
  printf("variance %.6f in the middle, %.6f in a corner\n", a[ia[middle] - 1], a[ia[corner] - 1]);
  printf("correlation of neighbours in the middle %.6f\n",
         a[ia[middle]] / sqrt(a[ia[middle] - 1] * a[ia[middle + 1] - 1]));

  /* One column of the inverse by a solve: the same variance. */
  b[middle] = 1;
  if (call(33, q) != 0) return 1;
  const double difference = fabs(x[middle] - a[ia[middle] - 1]);
  printf("difference from a solve %.1e\n", difference);
  if (call(-1, q) != 0) return 1;
  return difference < 1e-12 * x[middle] ? 0 : 1;
}
