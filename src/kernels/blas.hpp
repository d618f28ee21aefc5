// SPDX-License-Identifier: BSD-3-Clause
/// The BLAS and LAPACK routines of the factorization.
///
/// Overloads for float, double and both complex kinds, so that a template names an operation
/// and not a letter.  Arguments follow the BLAS; dimensions are int, matrices column-major.
#pragma once

#include "base/scalar.hpp"

namespace vlm {

extern "C" {
#define VLM_BLAS(p, T)                                                                            \
  void p##gemm_(const char*, const char*, const int*, const int*, const int*, const T*, const T*, \
                const int*, const T*, const int*, const T*, T*, const int*);                      \
  void p##getrf_(const int*, const int*, T*, const int*, int*, int*);
VLM_BLAS(s, float)
VLM_BLAS(d, double)
VLM_BLAS(c, std::complex<float>)
VLM_BLAS(z, std::complex<double>)
#undef VLM_BLAS
}

namespace blas {

#define VLM_BLAS(p, T)                                                                  \
  inline void gemm(char ta, char tb, int m, int n, int k, T alpha, const T* a, int lda, \
                   const T* b, int ldb, T beta, T* c, int ldc) {                        \
    p##gemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);           \
  }                                                                                     \
  inline int getrf(int m, int n, T* a, int lda, int* ipiv) {                            \
    int info = 0;                                                                       \
    p##getrf_(&m, &n, a, &lda, ipiv, &info);                                            \
    return info;                                                                        \
  }
VLM_BLAS(s, float)
VLM_BLAS(d, double)
VLM_BLAS(c, ccomplex)
VLM_BLAS(z, zcomplex)
#undef VLM_BLAS

}  // namespace blas

}  // namespace vlm
