# SPDX-License-Identifier: BSD-3-Clause
# Dense micro-kernels: one text, compiled for each instruction set that the compiler has, and
# chosen at run time.  velmora_kernel_objects lists the objects; they are linked into the library.
include(CheckCXXCompilerFlag)
set(velmora_kernel_isas baseline)
set(velmora_kernel_flags_baseline "")
set(velmora_kernel_flags_avx2 -mavx2 -mfma)
set(velmora_kernel_flags_avx512 -mavx512f -mavx512dq -mavx512vl -mavx512bw -mfma
                                -mprefer-vector-width=512)
# An unoptimised build emits library templates in every unit, which must not be wide ones.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  foreach(isa avx2 avx512)
    string(TOUPPER ${isa} name)
    list(JOIN velmora_kernel_flags_${isa} " " flags)
    check_cxx_compiler_flag("${flags}" VELMORA_HAS_${name})
    if(VELMORA_HAS_${name})
      list(APPEND velmora_kernel_isas ${isa})
      set_property(SOURCE src/kernels/choice.cpp APPEND PROPERTY
                   COMPILE_DEFINITIONS VELMORA_KERNELS_${name})
    endif()
  endforeach()
endif()

# Complex products as the BLAS forms them, without the detour for infinite parts.  Optimised
# builds only: the debug build's commands are also read by clang-tidy, which lacks the flag.
check_cxx_compiler_flag(-fcx-fortran-rules VELMORA_HAS_FORTRAN_COMPLEX)
if(VELMORA_HAS_FORTRAN_COMPLEX)
  set(velmora_complex_flags $<$<CONFIG:Release,RelWithDebInfo>:-fcx-fortran-rules>)
endif()

if(NOT VELMORA_SANITIZE)  # there the compiler's time counts
  set(velmora_kernel_optimization $<$<CONFIG:Release,RelWithDebInfo>:-O3>)
endif()
set(velmora_kernel_objects "")
foreach(isa ${velmora_kernel_isas})
  add_library(velmora_kernels_${isa} OBJECT src/kernels/instances.cpp)
  target_include_directories(velmora_kernels_${isa} PRIVATE src)
  target_compile_definitions(velmora_kernels_${isa} PRIVATE VELMORA_ISA=${isa})
  target_compile_options(velmora_kernels_${isa} PRIVATE
    ${velmora_kernel_flags_${isa}} -ffp-contract=fast -fno-math-errno -fno-trapping-math ${velmora_complex_flags} -Wno-psabi
    ${velmora_kernel_optimization})
  target_link_libraries(velmora_kernels_${isa} PRIVATE velmora_warnings velmora_instrumentation)
  list(APPEND velmora_kernel_objects $<TARGET_OBJECTS:velmora_kernels_${isa}>)
endforeach()

target_compile_options(velmora_objects PRIVATE ${velmora_complex_flags})
