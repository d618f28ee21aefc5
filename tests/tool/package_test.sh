#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs into an empty folder, or builds the Debian package and unpacks it there, and builds
# the examples against that as an outside project does: with find_package and with pkg-config.
#   package_test.sh install|deb SOURCE SCRATCH
set -euo pipefail
kind=$1 source=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch/root"

case $kind in
  install)
    "$source/dev" install "$scratch/root" >"$scratch/install.log"
    prefix=$scratch/root
    ;;
  deb)
    package=$source/$("$source/dev" package 2>"$scratch/package.log" | tail -n 1)
    dpkg-deb --info "$package" | grep -E '^ Depends:.*libc6' || {
      echo "the package names no dependencies"
      exit 1
    }
    dpkg-deb -x "$package" "$scratch/root"
    prefix=$scratch/root/usr
    ;;
esac

# What must be there, and nothing of the tests or the static archive.
[[ -x $prefix/bin/velmora-solve && -x $prefix/bin/velmora-gallery ]]
[[ -f $prefix/include/velmora.h ]]
find "$prefix" -name 'libvelmora_internal*' -o -name '*gtest*' | grep . && exit 1
for manual in man1/velmora-solve.1 man1/velmora-gallery.1 man3/velmora.3; do
  [[ -f $prefix/share/man/$manual ]]
done

# The installed program finds the installed library, not the one of the build.
lib=$(dirname "$(find "$prefix" -name libvelmora.so)")
ldd "$prefix/bin/velmora-solve" | grep -F "$scratch" | grep -q libvelmora
"$prefix/bin/velmora-solve" "$source/examples/bracket.mtx.gz" --quiet

cmake -S "$source/tests/tool/consumer" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXAMPLES="$source/examples" >"$scratch/configure.log"
cmake --build "$scratch/consumer" >"$scratch/build.log"
"$scratch/consumer/consumer_c" >/dev/null
"$scratch/consumer/consumer_cpp" >/dev/null

export PKG_CONFIG_PATH=$lib/pkgconfig
# shellcheck disable=SC2046  # the flags are words
${CC:-cc} "$source/examples/solve_symmetric.c" -o "$scratch/by_pkg_config" \
  $(pkg-config --cflags --libs velmora) -lm
LD_LIBRARY_PATH=$lib "$scratch/by_pkg_config" >/dev/null
echo "passed"
