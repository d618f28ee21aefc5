# SPDX-License-Identifier: BSD-3-Clause
# What the shared library exports: the names that the public headers declare, by a version script
# that is made from them.  Hidden visibility alone lets templates of the C++ library through.
include(CheckLinkerFlag)
file(WRITE ${PROJECT_BINARY_DIR}/probe.map "{ global: main; local: *; };\n")
check_linker_flag(C "LINKER:--version-script=${PROJECT_BINARY_DIR}/probe.map" VELMORA_HAS_VERSION_SCRIPT)
if(VELMORA_HAS_VERSION_SCRIPT)
  file(GLOB_RECURSE velmora_declaring CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
  set(velmora_map ${PROJECT_BINARY_DIR}/velmora.map)
  # The second names of the containers' routines have a prefix of their own.
  add_custom_command(OUTPUT ${velmora_map}
    COMMAND ${PROJECT_SOURCE_DIR}/cmake/version_script.sh VELMORA_${PROJECT_VERSION_MAJOR}
            ${CMAKE_C_COMPILER} ${PROJECT_SOURCE_DIR}/include ${velmora_map}
    DEPENDS ${PROJECT_SOURCE_DIR}/cmake/version_script.sh
            ${PROJECT_SOURCE_DIR}/cmake/declared_names.sh ${velmora_declaring}
    VERBATIM)
  target_sources(velmora PRIVATE ${velmora_map})
  target_link_options(velmora PRIVATE LINKER:--version-script=${velmora_map})
  set_property(TARGET velmora APPEND PROPERTY LINK_DEPENDS ${velmora_map})
endif()
