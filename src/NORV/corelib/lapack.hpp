// SPDX-License-Identifier: BSD-3-Clause
/// The BLAS and LAPACK routines of dense blocks, most of them of doubles.
///
/// Arguments follow the BLAS; dimensions are int, matrices column-major.
#pragma once

#include <complex>

namespace vlm {

extern "C" {
void dgesv_(const int*, const int*, double*, const int*, int*, double*, const int*, int*);
void zgesv_(const int*, const int*, std::complex<double>*, const int*, int*, std::complex<double>*,
            const int*, int*);
void dgeev_(const char*, const char*, const int*, double*, const int*, double*, double*, double*,
            const int*, double*, const int*, double*, const int*, int*);
void zgeev_(const char*, const char*, const int*, std::complex<double>*, const int*,
            std::complex<double>*, std::complex<double>*, const int*, std::complex<double>*,
            const int*, std::complex<double>*, const int*, double*, int*);
void dgemm_(const char*, const char*, const int*, const int*, const int*, const double*,
            const double*, const int*, const double*, const int*, const double*, double*,
            const int*);
void dgemv_(const char*, const int*, const int*, const double*, const double*, const int*,
            const double*, const int*, const double*, double*, const int*);
void dtrsv_(const char*, const char*, const char*, const int*, const double*, const int*, double*,
            const int*);
void dgetrf_(const int*, const int*, double*, const int*, int*, int*);
void dgetrs_(const char*, const int*, const int*, const double*, const int*, const int*, double*,
             const int*, int*);
void dgetri_(const int*, double*, const int*, const int*, double*, const int*, int*);
void dsytrf_(const char*, const int*, double*, const int*, int*, double*, const int*, int*);
void dsytri_(const char*, const int*, double*, const int*, const int*, double*, int*);
void dgeqrf_(const int*, const int*, double*, const int*, double*, double*, const int*, int*);
void dormqr_(const char*, const char*, const int*, const int*, const int*, const double*,
             const int*, const double*, double*, const int*, double*, const int*, int*);
void dsyevr_(const char*, const char*, const char*, const int*, double*, const int*, const double*,
             const double*, const int*, const int*, const double*, int*, double*, double*,
             const int*, int*, double*, const int*, int*, const int*, int*);
void dggev_(const char*, const char*, const int*, double*, const int*, double*, const int*, double*,
            double*, double*, double*, const int*, double*, const int*, double*, const int*, int*);
}

namespace lapack {

inline void gemm(char ta, char tb, int m, int n, int k, double alpha, const double* a, int lda,
                 const double* b, int ldb, double beta, double* c, int ldc) {
  dgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}
inline void gemv(char t, int m, int n, double alpha, const double* a, int lda, const double* x,
                 int incx, double beta, double* y, int incy) {
  dgemv_(&t, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy);
}
inline void trsv(char uplo, char t, char diag, int n, const double* a, int lda, double* x,
                 int incx) {
  dtrsv_(&uplo, &t, &diag, &n, a, &lda, x, &incx);
}
inline int getrf(int m, int n, double* a, int lda, int* ipiv) {
  int info = 0;
  dgetrf_(&m, &n, a, &lda, ipiv, &info);
  return info;
}

inline int getrs(char t, int n, int nrhs, const double* a, int lda, const int* ipiv, double* b,
                 int ldb) {
  int info = 0;
  dgetrs_(&t, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}
inline int getri(int n, double* a, int lda, const int* ipiv, double* work, int lwork) {
  int info = 0;
  dgetri_(&n, a, &lda, ipiv, work, &lwork, &info);
  return info;
}
inline int sytrf(char uplo, int n, double* a, int lda, int* ipiv, double* work, int lwork) {
  int info = 0;
  dsytrf_(&uplo, &n, a, &lda, ipiv, work, &lwork, &info);
  return info;
}
inline int sytri(char uplo, int n, double* a, int lda, const int* ipiv, double* work) {
  int info = 0;
  dsytri_(&uplo, &n, a, &lda, ipiv, work, &info);
  return info;
}
inline int geqrf(int m, int n, double* a, int lda, double* tau, double* work, int lwork) {
  int info = 0;
  dgeqrf_(&m, &n, a, &lda, tau, work, &lwork, &info);
  return info;
}
/// c := Q' c for the m by m product Q of the k reflectors that geqrf left in a; c is m by n.
inline int apply_qt(int m, int n, int k, const double* a, int lda, const double* tau, double* c,
                    int ldc, double* work, int lwork) {
  const char left = 'L', transposed = 'T';
  int info = 0;
  dormqr_(&left, &transposed, &m, &n, &k, a, &lda, tau, c, &ldc, work, &lwork, &info);
  return info;
}
/// b := a^-1 b for one right-hand side; a becomes its factors.
inline int gesv(int n, double* a, int* ipiv, double* b) {
  const int one = 1;
  int info = 0;
  dgesv_(&n, &one, a, &n, ipiv, b, &n, &info);
  return info;
}
inline int gesv(int n, std::complex<double>* a, int* ipiv, std::complex<double>* b) {
  const int one = 1;
  int info = 0;
  zgesv_(&n, &one, a, &n, ipiv, b, &n, &info);
  return info;
}
/// Eigenvalues and right eigenvectors of a general matrix; work has 8 n places.
inline int geev(int n, double* a, double* re, double* im, double* vectors, double* work) {
  const char none = 'N', all = 'V';
  const int ldv = 1, lwork = 8 * n;
  double unused = 0;
  int info = 0;
  dgeev_(&none, &all, &n, a, &n, re, im, &unused, &ldv, vectors, &n, work, &lwork, &info);
  return info;
}
/// The same; work has 4 n places, real_work 2 n.
inline int geev(int n, std::complex<double>* a, std::complex<double>* values,
                std::complex<double>* vectors, std::complex<double>* work, double* real_work) {
  const char none = 'N', all = 'V';
  const int ldv = 1, lwork = 4 * n;
  std::complex<double> unused;
  int info = 0;
  zgeev_(&none, &all, &n, a, &n, values, &unused, &ldv, vectors, &n, work, &lwork, real_work,
         &info);
  return info;
}
/// All eigenvalues of a symmetric matrix, rising; work has 26 n places, iwork 10 n.
inline int symmetric_eigenvalues(char uplo, int n, double* a, int lda, double* w, double* work,
                                 int* iwork) {
  const char values_only = 'N', all = 'A';
  const double unused = 0.0, tolerance = 0.0;
  const int none = 0, ldz = 1, lwork = 26 * n, liwork = 10 * n;
  int found = 0, support[2] = {0, 0}, info = 0;
  double z = 0.0;
  dsyevr_(&values_only, &all, &uplo, &n, a, &lda, &unused, &unused, &none, &none, &tolerance,
          &found, w, &z, &ldz, support, work, &lwork, iwork, &liwork, &info);
  return info;
}
/// Eigenvalues (re + i im) / beta of the pencil (a, b); work has 8 n places.
inline int pencil_eigenvalues(int n, double* a, int lda, double* b, int ldb, double* re, double* im,
                              double* beta, double* work) {
  const char none = 'N';
  const int ldv = 1, lwork = 8 * n;
  double v = 0.0;
  int info = 0;
  dggev_(&none, &none, &n, a, &lda, b, &ldb, re, im, beta, &v, &ldv, &v, &ldv, work, &lwork, &info);
  return info;
}

}  // namespace lapack
}  // namespace vlm
