# SPDX-License-Identifier: BSD-3-Clause
# What `cmake --install` and the Debian package carry: headers, the shared library,
# both programs with their manual pages, and the descriptions that find_package(velmora) and
# `pkg-config velmora` read.
include(CMakePackageConfigHelpers)

set(velmora_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/velmora)

file(GLOB velmora_public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${velmora_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/norv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS velmora EXPORT velmora-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT velmora-targets NAMESPACE velmora:: DESTINATION ${velmora_package_dir})

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/velmora-config.cmake.in
  ${PROJECT_BINARY_DIR}/velmora-config.cmake
  INSTALL_DESTINATION ${velmora_package_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/velmora-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velmora-config.cmake
              ${PROJECT_BINARY_DIR}/velmora-config-version.cmake
        DESTINATION ${velmora_package_dir})

# The .pc file finds its prefix from its own place, so an installed tree can be moved.
file(RELATIVE_PATH velmora_pc_to_prefix
     /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" velmora_pc_to_prefix "${velmora_pc_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/velmora.pc.in ${PROJECT_BINARY_DIR}/velmora.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velmora.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET velmora-solve)
  # An installed velmora-solve finds the library beside it, wherever the prefix lies.
  file(RELATIVE_PATH velmora_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(velmora-solve PROPERTIES INSTALL_RPATH "$ORIGIN/${velmora_bin_to_lib}")
  install(TARGETS velmora-solve velmora-gallery RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/velmora-solve.1
                ${PROJECT_SOURCE_DIR}/docs/man/velmora-gallery.1
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/docs/man/velmora.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)

set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_CONTACT "Velmora developers <velmora@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_FILE_NAME velmora_${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Direct and iterative solution of large sparse systems of linear equations:
 the shared library, its headers with the CMake package and pkg-config file,
 and velmora-solve, which solves systems from Matrix Market files.")
include(CPack)
