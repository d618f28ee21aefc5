# SPDX-License-Identifier: BSD-3-Clause
# Debian's OpenBLAS (OpenMP flavour, LAPACK inside) and METIS, each as an imported target.
find_library(VELMORA_BLAS_LIBRARY NAMES openblas
             PATH_SUFFIXES openblas-openmp
             DOC "BLAS and LAPACK; the OpenMP flavour of OpenBLAS shares the thread pool")
find_path(VELMORA_METIS_INCLUDE_DIR metis.h)
find_library(VELMORA_METIS_LIBRARY NAMES metis)
foreach(item BLAS_LIBRARY METIS_INCLUDE_DIR METIS_LIBRARY)
  if(NOT VELMORA_${item})
    message(FATAL_ERROR "VELMORA_${item} not found: ./dev setup installs what is needed")
  endif()
endforeach()

add_library(velmora_blas INTERFACE)
add_library(velmora::blas ALIAS velmora_blas)
target_link_libraries(velmora_blas INTERFACE ${VELMORA_BLAS_LIBRARY})

add_library(velmora_metis INTERFACE)
add_library(velmora::metis ALIAS velmora_metis)
target_include_directories(velmora_metis SYSTEM INTERFACE ${VELMORA_METIS_INCLUDE_DIR})
target_link_libraries(velmora_metis INTERFACE ${VELMORA_METIS_LIBRARY})
