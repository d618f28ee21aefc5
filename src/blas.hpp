/// The one place that names BLAS and LAPACK routines.
///
/// Overloads for float, double and both complex kinds, so that a template names an operation
/// and not a letter.  Arguments follow the BLAS; dimensions are int, matrices column-major.
#pragma once

#include <complex>

namespace vlm {

using zcomplex = std::complex<double>;
using ccomplex = std::complex<float>;

extern "C" {
#define VLM_BLAS(p, T)                                                                        \
  void p##gemm_(const char*, const char*, const int*, const int*, const int*, const T*,       \
                const T*, const int*, const T*, const int*, const T*, T*, const int*);        \
  void p##gemv_(const char*, const int*, const int*, const T*, const T*, const int*, const T*, \
                const int*, const T*, T*, const int*);                                        \
  void p##trsm_(const char*, const char*, const char*, const char*, const int*, const int*,   \
                const T*, const T*, const int*, T*, const int*);                              \
  void p##trsv_(const char*, const char*, const char*, const int*, const T*, const int*, T*,  \
                const int*);                                                                  \
  void p##potrf_(const char*, const int*, T*, const int*, int*);                              \
  void p##getrf_(const int*, const int*, T*, const int*, int*, int*);                         \
  void p##swap_(const int*, T*, const int*, T*, const int*);
VLM_BLAS(s, float)
VLM_BLAS(d, double)
VLM_BLAS(c, std::complex<float>)
VLM_BLAS(z, std::complex<double>)
#undef VLM_BLAS
}

namespace blas {

#define VLM_BLAS(p, T)                                                                          \
  inline void gemm(char ta, char tb, int m, int n, int k, T alpha, const T* a, int lda,         \
                   const T* b, int ldb, T beta, T* c, int ldc) {                                \
    p##gemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);                   \
  }                                                                                             \
  inline void gemv(char t, int m, int n, T alpha, const T* a, int lda, const T* x, int incx,    \
                   T beta, T* y, int incy) {                                                    \
    p##gemv_(&t, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy);                           \
  }                                                                                             \
  inline void trsm(char side, char uplo, char t, char diag, int m, int n, T alpha, const T* a,  \
                   int lda, T* b, int ldb) {                                                    \
    p##trsm_(&side, &uplo, &t, &diag, &m, &n, &alpha, a, &lda, b, &ldb);                        \
  }                                                                                             \
  inline void trsv(char uplo, char t, char diag, int n, const T* a, int lda, T* x, int incx) {  \
    p##trsv_(&uplo, &t, &diag, &n, a, &lda, x, &incx);                                          \
  }                                                                                             \
  inline int potrf(char uplo, int n, T* a, int lda) {                                           \
    int info = 0;                                                                               \
    p##potrf_(&uplo, &n, a, &lda, &info);                                                       \
    return info;                                                                                \
  }                                                                                             \
  inline int getrf(int m, int n, T* a, int lda, int* ipiv) {                                    \
    int info = 0;                                                                               \
    p##getrf_(&m, &n, a, &lda, ipiv, &info);                                                    \
    return info;                                                                                \
  }                                                                                             \
  inline void swap(int n, T* x, int incx, T* y, int incy) { p##swap_(&n, x, &incx, y, &incy); }
VLM_BLAS(s, float)
VLM_BLAS(d, double)
VLM_BLAS(c, ccomplex)
VLM_BLAS(z, zcomplex)
#undef VLM_BLAS

}  // namespace blas
}  // namespace vlm
