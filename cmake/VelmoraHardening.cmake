# SPDX-License-Identifier: BSD-3-Clause
# velmora_hardening: what distributions build with.  It goes into the library and the programs.
# The kernels are left out: they keep their tiles in local arrays, where each call would pay for
# a canary, and they read no text and index nothing that a caller gave.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)  # programs are position independent, as the library is

add_library(velmora_hardening INTERFACE)
if(VELMORA_HARDENING)
  target_compile_definitions(velmora_hardening INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
  check_cxx_compiler_flag(-fstack-protector-strong VELMORA_HAS_STACK_PROTECTOR)
  if(VELMORA_HAS_STACK_PROTECTOR)
    target_compile_options(velmora_hardening INTERFACE -fstack-protector-strong)
  endif()
  if(NOT VELMORA_SANITIZE)  # the sanitizers replace the same functions; needs optimisation
    target_compile_options(velmora_hardening INTERFACE
      $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
  endif()
  foreach(item relro now)
    check_linker_flag(CXX LINKER:-z,${item} VELMORA_HAS_LINK_${item})
    if(VELMORA_HAS_LINK_${item})
      target_link_options(velmora_hardening INTERFACE LINKER:-z,${item})
    endif()
  endforeach()
endif()
