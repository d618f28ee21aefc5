# SPDX-License-Identifier: BSD-3-Clause
# Runs at the head of the install script, for every component: the folders, and what writes the
# files that name them.  With the environment's VELMORA_DEBIAN, a multiarch triplet, files are
# laid out as a Debian package has them; otherwise below the prefix as it was configured.
if(DEFINED ENV{VELMORA_DEBIAN})
  set(velmora_debian ON)
  set(velmora_libdir lib/$ENV{VELMORA_DEBIAN})
endif()
file(MAKE_DIRECTORY ${velmora_staging})

function(velmora_put folder)
  file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/${folder}" TYPE FILE FILES ${ARGN})
endfunction()

# As gzip that is the same at any time and place.
function(velmora_put_compressed folder file name)
  file(REMOVE ${velmora_staging}/${name}.gz)  # one that another user wrote
  execute_process(COMMAND gzip -9nc ${file} OUTPUT_FILE ${velmora_staging}/${name}.gz
                  COMMAND_ERROR_IS_FATAL ANY)
  velmora_put(${folder} ${velmora_staging}/${name}.gz)
endfunction()

# The licence, once; in every Debian package in the form that Debian reads.
function(velmora_legal package)
  if(NOT velmora_debian)
    velmora_put(${velmora_docdir}/velmora ${velmora_source}/LICENSE)
    return()
  endif()
  file(READ ${velmora_source}/LICENSE text)
  string(REGEX MATCH "Copyright[^\n]*" holder "${text}")
  string(REGEX REPLACE "^Copyright \\(c\\) " "" holder "${holder}")
  string(REGEX REPLACE "^.*Copyright[^\n]*\n+" "" text "${text}")
  string(STRIP "${text}" text)
  string(REPLACE "\n\n" "\n.\n" text "${text}")
  string(REPLACE "\n" "\n " text "${text}")
  file(REMOVE ${velmora_staging}/copyright)
  file(WRITE ${velmora_staging}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: velmora

Files: *
Copyright: ${holder}
License: BSD-3-Clause

License: BSD-3-Clause
 ${text}
")
  velmora_put(${velmora_docdir}/${package} ${velmora_staging}/copyright)
  velmora_put_compressed(${velmora_docdir}/${package} ${velmora_source}/CHANGELOG.md changelog)
endfunction()

# Manual page, with the version in its footer.
function(velmora_manual page)
  set(PROJECT_VERSION ${velmora_version})
  configure_file(${velmora_source}/docs/man/${page} ${velmora_staging}/${page} @ONLY)
  string(REGEX REPLACE ".*\\." "" section ${page})
  if(velmora_debian)
    velmora_put_compressed(${velmora_mandir}/man${section} ${velmora_staging}/${page} ${page})
  else()
    velmora_put(${velmora_mandir}/man${section} ${velmora_staging}/${page})
  endif()
endfunction()

# What find_package(velmora) and pkg-config read.  Both find the prefix from their own place, so
# that an installed tree can be moved.
function(velmora_descriptions)
  file(RELATIVE_PATH velmora_to_prefix /${velmora_libdir} /)
  string(REGEX REPLACE "/$" "" velmora_to_prefix "${velmora_to_prefix}")
  configure_file(${velmora_source}/cmake/velmora-config.cmake.in
                 ${velmora_staging}/velmora-config.cmake @ONLY)
  configure_file(${velmora_source}/cmake/velmora.pc.in ${velmora_staging}/velmora.pc @ONLY)
  velmora_put(${velmora_libdir}/cmake/velmora ${velmora_staging}/velmora-config.cmake
              ${velmora_staging}/velmora-config-version.cmake)
  velmora_put(${velmora_libdir}/pkgconfig ${velmora_staging}/velmora.pc)
endfunction()

# A program of the system finds the system's libraries without a path of its own.
function(velmora_system_paths program)
  if(velmora_debian)
    file(RPATH_REMOVE FILE "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${program}")
  endif()
endfunction()
