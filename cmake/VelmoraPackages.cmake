# SPDX-License-Identifier: BSD-3-Clause
# The Debian packages, one a component; ./dev package makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_CONTACT "Velmora developers <velmora@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library dev tools doc python)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(about "Direct and iterative solution of large sparse systems of linear equations.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvelmora${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${about}\nThis package has the shared library.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_MULTIARCH same)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(velmora_same_version "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvelmora-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${velmora_same_version}")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS velmora-doc)
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "${about}\nThis package has headers, CMake package, pkg-config file, manual page and examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME velmora-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION math)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${velmora_same_version}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS gnuplot)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "${about}\nvelmora-solve solves systems from Matrix Market files; velmora-gallery writes test systems.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME velmora-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION "${about}\nThis package has the user guide.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-velmora)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (>= ${PROJECT_VERSION}), python3, python3-numpy, python3-scipy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-petsc4py)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "${about}\nThis package has the Python interface, for SciPy's matrices.")
include(CPack)
