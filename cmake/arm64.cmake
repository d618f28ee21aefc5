# SPDX-License-Identifier: BSD-3-Clause
# Toolchain: 64-bit ARM by Debian's cross compiler; programs run under qemu.  The libraries of
# that architecture are unpacked below VELMORA_ARM64_ROOT, which ./dev arm64 fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_Fortran_COMPILER aarch64-linux-gnu-gfortran)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(VELMORA_ARM64_ROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-root CACHE PATH "Libraries for 64-bit ARM")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELMORA_ARM64_ROOT)
cmake_path(ABSOLUTE_PATH VELMORA_ARM64_ROOT NORMALIZE OUTPUT_VARIABLE root)
set(CMAKE_FIND_ROOT_PATH ${root} /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
foreach(kind EXE SHARED)  # what the libraries need in their turn
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,-rpath-link,${root}/usr/lib/aarch64-linux-gnu")
endforeach()
# The runtime library beside the others, not the one in the compiler's own folder.
set(OpenMP_gomp_LIBRARY ${root}/usr/lib/aarch64-linux-gnu/libgomp.so.1 CACHE FILEPATH "")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${root})
