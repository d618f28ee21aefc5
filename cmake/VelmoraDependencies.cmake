# SPDX-License-Identifier: BSD-3-Clause
# BLAS with LAPACK, and METIS, each as an imported target.
#
# Any BLAS with 32-bit integers will do.  The OpenMP flavour of OpenBLAS, which shares the thread
# pool, is looked for first; -DVELMORA_BLAS_LIBRARY=... names another, and LAPACK is looked for
# beside it where it has none.
include(CheckCSourceCompiles)
include(CheckCSourceRuns)
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

# velmora_links(VARIABLE FUNCTION LIBRARY...): whether the libraries have the function.
function(velmora_links variable function)
  set(CMAKE_REQUIRED_LIBRARIES ${ARGN})
  set(CMAKE_REQUIRED_QUIET ON)
  check_c_source_compiles("void ${function}(void); int main(void) { ${function}(); return 0; }" ${variable})
endfunction()

# What was found out of a library holds as long as it is the same one.
if(NOT "${VELMORA_BLAS_LIBRARY}" STREQUAL "${VELMORA_BLAS_TRIED}")
  foreach(result PLAIN_NAMES SUFFIXED_NAMES HAS_LAPACK SHORT_INTEGERS LAPACK_LIBRARY)
    unset(VELMORA_BLAS_${result} CACHE)
  endforeach()
  set(VELMORA_BLAS_TRIED "${VELMORA_BLAS_LIBRARY}" CACHE INTERNAL "")
endif()

velmora_links(VELMORA_BLAS_PLAIN_NAMES dgemm_ ${VELMORA_BLAS_LIBRARY})
if(NOT VELMORA_BLAS_PLAIN_NAMES)
  velmora_links(VELMORA_BLAS_SUFFIXED_NAMES dgemm_64_ ${VELMORA_BLAS_LIBRARY})
  if(VELMORA_BLAS_SUFFIXED_NAMES)
    set(reason "has 64-bit integers; Velmora needs a BLAS with 32-bit integers")
  else()
    set(reason "has no dgemm_, or cannot be linked")
  endif()
  message(FATAL_ERROR "VELMORA_BLAS_LIBRARY (${VELMORA_BLAS_LIBRARY}) ${reason}")
endif()

set(velmora_blas_libraries ${VELMORA_BLAS_LIBRARY})
velmora_links(VELMORA_BLAS_HAS_LAPACK dgetrf_ ${VELMORA_BLAS_LIBRARY})
if(NOT VELMORA_BLAS_HAS_LAPACK)
  list(GET VELMORA_BLAS_LIBRARY 0 first)
  cmake_path(GET first PARENT_PATH folder)
  find_library(VELMORA_BLAS_LAPACK_LIBRARY NAMES lapack
               HINTS ${folder} ${folder}/../lapack ${folder}/lapack
               DOC "LAPACK, where the BLAS has none")
  if(NOT VELMORA_BLAS_LAPACK_LIBRARY)
    message(FATAL_ERROR "VELMORA_BLAS_LIBRARY (${VELMORA_BLAS_LIBRARY}) has no LAPACK, and there is "
                        "none beside it; name one with -DVELMORA_BLAS_LAPACK_LIBRARY=...")
  endif()
  list(PREPEND velmora_blas_libraries ${VELMORA_BLAS_LAPACK_LIBRARY})
endif()

# Reads two values when the length is an int, none when it is a 64-bit integer, then negative.
set(CMAKE_REQUIRED_LIBRARIES ${VELMORA_BLAS_LIBRARY})
if(NOT CMAKE_CROSSCOMPILING OR CMAKE_CROSSCOMPILING_EMULATOR)
  check_c_source_runs("
    double ddot_(const int*, const double*, const int*, const double*, const int*);
    int main(void) {
      const union { int half[2]; long long whole; } n = {{2, -1}}, one = {{1, 0}};
      const double x[2] = {1, 2};
      return ddot_(n.half, x, one.half, x, one.half) == 5 ? 0 : 1;
    }" VELMORA_BLAS_SHORT_INTEGERS)
  if(NOT VELMORA_BLAS_SHORT_INTEGERS)
    message(FATAL_ERROR "VELMORA_BLAS_LIBRARY (${VELMORA_BLAS_LIBRARY}) has 64-bit integers or does "
                        "not run; Velmora needs a BLAS with 32-bit integers")
  endif()
endif()
unset(CMAKE_REQUIRED_LIBRARIES)

add_library(velmora_blas INTERFACE)
add_library(velmora::blas ALIAS velmora_blas)
target_link_libraries(velmora_blas INTERFACE ${velmora_blas_libraries})

add_library(velmora_metis INTERFACE)
add_library(velmora::metis ALIAS velmora_metis)
target_include_directories(velmora_metis SYSTEM INTERFACE ${VELMORA_METIS_INCLUDE_DIR})
target_link_libraries(velmora_metis INTERFACE ${VELMORA_METIS_LIBRARY})
