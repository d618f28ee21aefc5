# SPDX-License-Identifier: BSD-3-Clause
# Warnings for the project's own code, and the flags of the debug and sanitizer builds.
add_library(velmora_warnings INTERFACE)
target_compile_options(velmora_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)  # a loop that it does not vectorise is no fault

add_library(velmora_instrumentation INTERFACE)
if(VELMORA_SANITIZE)
  target_compile_options(velmora_instrumentation INTERFACE
    -fsanitize=${VELMORA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(velmora_instrumentation INTERFACE -fsanitize=${VELMORA_SANITIZE})
endif()
if(VELMORA_RANGE_CHECKS)
  target_compile_definitions(velmora_instrumentation INTERFACE
    VELMORA_RANGE_CHECKS _GLIBCXX_ASSERTIONS)
endif()
