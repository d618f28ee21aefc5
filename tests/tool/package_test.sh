#!/usr/bin/env bash
# Installs the build into an empty folder, or unpacks its Debian package there, and builds the
# examples against it as an outside project does: with find_package and with pkg-config.
#   package_test.sh install|deb SOURCE BUILD SCRATCH
set -euo pipefail
kind=$1 source=$2 build=$3 scratch=$4
rm -rf "$scratch"
mkdir -p "$scratch/root"

case $kind in
  install)
    cmake --install "$build" --prefix "$scratch/root" >"$scratch/install.log"
    prefix=$scratch/root
    ;;
  deb)
    (cd "$build" && cpack -G DEB -B "$scratch" -D CPACK_INSTALL_PREFIX=/usr >"$scratch/cpack.log")
    package=$(ls "$scratch"/*.deb)
    dpkg-deb --info "$package" | grep -E '^ Depends:.*libc6' || {
      echo "the package names no dependencies"
      exit 1
    }
    dpkg-deb -x "$package" "$scratch/root"
    prefix=$scratch/root/usr
    ;;
esac

# What must be there, and nothing of the tests or the static archive.
[[ -x $prefix/bin/velmora-solve ]]
[[ -f $prefix/include/velmora.h ]]
find "$prefix" -name 'libvelmora_internal*' -o -name '*gtest*' | grep . && exit 1
export MANPATH=$prefix/share/man
[[ -f $prefix/share/man/man1/velmora-solve.1 && -f $prefix/share/man/man3/velmora.3 ]]

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
