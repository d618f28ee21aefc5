# SPDX-License-Identifier: BSD-3-Clause
# What `cmake --install` and the Debian packages carry, by component:
#   library  the shared library                                     libvelmora4
#   dev      headers, link, CMake package, velmora.pc, examples     libvelmora-dev
#   tools    both programs with their manual pages                  velmora-tools
#   doc      the guide                                              velmora-doc
#   python   the Python package, which finds the library by itself   python3-velmora
# install_layout.cmake, which runs first, says where things go: the packages are made from the
# release build, whose own prefix has another library folder.
set(velmora_doc ${CMAKE_INSTALL_DATAROOTDIR}/doc)
set(velmora_staging ${PROJECT_BINARY_DIR}/install)
install(CODE "set(velmora_source [[${PROJECT_SOURCE_DIR}]])
set(velmora_staging [[${velmora_staging}]])
set(velmora_libdir [[${CMAKE_INSTALL_LIBDIR}]])
set(velmora_incdir [[${CMAKE_INSTALL_INCLUDEDIR}]])
set(velmora_mandir [[${CMAKE_INSTALL_MANDIR}]])
set(velmora_docdir [[${velmora_doc}]])
set(velmora_description [[${PROJECT_DESCRIPTION}]])
set(velmora_version ${PROJECT_VERSION})
set(velmora_abi ${PROJECT_VERSION_MAJOR})" ALL_COMPONENTS)
install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/install_layout.cmake ALL_COMPONENTS)

install(TARGETS velmora
        LIBRARY DESTINATION "\${velmora_libdir}" COMPONENT library NAMELINK_COMPONENT dev)
install(CODE "velmora_legal(libvelmora${PROJECT_VERSION_MAJOR})" COMPONENT library)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${velmora_doc}/velmora
        COMPONENT dev PATTERN CMakeLists.txt EXCLUDE)
include(CMakePackageConfigHelpers)
write_basic_package_version_file(
  ${velmora_staging}/velmora-config-version.cmake COMPATIBILITY SameMajorVersion)
install(CODE "velmora_legal(libvelmora-dev)
velmora_descriptions()
velmora_manual(velmora.3)" COMPONENT dev)

if(TARGET velmora-solve)
  # An installed velmora-solve finds the library beside it, wherever the prefix lies.
  file(RELATIVE_PATH velmora_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(velmora-solve PROPERTIES INSTALL_RPATH "$ORIGIN/${velmora_bin_to_lib}")
  install(TARGETS velmora-solve velmora-gallery
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(CODE "velmora_legal(velmora-tools)
velmora_system_paths(${CMAKE_INSTALL_BINDIR}/velmora-solve)
velmora_manual(velmora-solve.1)
velmora_manual(velmora-gallery.1)" COMPONENT tools)
endif()

file(GLOB velmora_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${velmora_doc}/velmora COMPONENT doc)
install(FILES ${velmora_pages} DESTINATION ${velmora_doc}/velmora/docs COMPONENT doc)
install(CODE "velmora_legal(velmora-doc)" COMPONENT doc)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/velmora DESTINATION lib/python3/dist-packages
        COMPONENT python FILES_MATCHING PATTERN "*.py" PATTERN "py.typed")
install(CODE "velmora_legal(python3-velmora)" COMPONENT python)

if(PROJECT_IS_TOP_LEVEL)
  include(VelmoraPackages)
endif()
