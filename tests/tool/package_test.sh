#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs into an empty folder, or builds the Debian packages and unpacks them there, and builds
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
    mapfile -t packages < <("$source/dev" package 2>"$scratch/package.log")
    ((${#packages[@]} == 5)) || { echo "not five packages: ${packages[*]}"; exit 1; }
    for package in "${packages[@]}"; do
      dpkg-deb -x "$source/$package" "$scratch/root"
      name=$(dpkg-deb -f "$source/$package" Package)
      depends=$(dpkg-deb -f "$source/$package" Depends)
      version=$(dpkg-deb -f "$source/$package" Version)
      case $name in
        libvelmora4) wanted='libc6 .*libopenblas0' ;;
        libvelmora-dev) wanted="^libvelmora4 \\(= $version\\)" ;;
        velmora-tools) wanted="^libvelmora4 \\(= $version\\), libc6" ;;
        velmora-doc) wanted= ;;
        python3-velmora) wanted="^libvelmora4 \\(>= $version\\), python3, .*python3-scipy" ;;
        *) echo "what is $name?"; exit 1 ;;
      esac
      grep -qE -- "$wanted" <<<"$depends" || { echo "$name depends on: $depends"; exit 1; }
      grep -q '^License: BSD-3-Clause' "$scratch/root/usr/share/doc/$name/copyright"
    done
    prefix=$scratch/root/usr
    # A program of the system has no search path; the loader knows where the library lies.
    readelf -d "$prefix/bin/velmora-solve" | grep -E 'R(UN)?PATH' && exit 1
    LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name 'libvelmora.so.4')")
    export LD_LIBRARY_PATH
    ;;
esac

# What must be there, and nothing of the tests or the static archive.
[[ -x $prefix/bin/velmora-solve && -x $prefix/bin/velmora-gallery ]]
(cd "$source/include" && find . -name '*.h' -o -name '*.hpp') | while read -r header; do
  [[ -f $prefix/include/$header ]]
done
for file in README.md docs/first-solve.md examples/solve_symmetric.c examples/bracket.mtx.gz; do
  [[ -f $prefix/share/doc/velmora/$file ]]
done
find "$prefix" -name 'libvelmora_internal*' -o -name '*gtest*' | grep . && exit 1
version=$("$prefix/bin/velmora-solve" --version | awk '{ print $2 }')
for manual in man1/velmora-solve.1 man1/velmora-gallery.1 man3/velmora.3; do
  zcat -f "$prefix/share/man/$manual"* | grep -qF "\"Velmora $version\""
done
grep -q "^## $version" "$prefix/share/doc/velmora/CHANGELOG.md"

# The installed program finds the installed library, not the one of the build.
lib=$(dirname "$(find "$prefix" -name libvelmora.so)")
ldd "$prefix/bin/velmora-solve" | grep -F "$scratch" | grep -q libvelmora
"$prefix/bin/velmora-solve" "$source/examples/bracket.mtx.gz" --quiet

cmake -S "$source/tests/tool/consumer" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXAMPLES="$prefix/share/doc/velmora/examples" -DVERSION="$version" >"$scratch/configure.log"
cmake --build "$scratch/consumer" >"$scratch/build.log"
"$scratch/consumer/consumer_c" >/dev/null
"$scratch/consumer/consumer_cpp" >/dev/null
"$scratch/consumer/consumer_newton" >/dev/null

# The Python package finds the library of its own prefix.
if /usr/bin/python3 -c 'import scipy' 2>/dev/null; then
  PYTHONPATH=$prefix/lib/python3/dist-packages LD_LIBRARY_PATH='' /usr/bin/python3 -B -c "
import velmora
assert velmora.version() == '$version'
assert '$prefix' in open('/proc/self/maps').read()
print(velmora.spsolve([[4, 1], [1, 3]], [6, 7]))"
fi

export PKG_CONFIG_PATH=$lib/pkgconfig
# shellcheck disable=SC2046  # the flags are words
${CC:-cc} "$source/examples/solve_symmetric.c" -o "$scratch/by_pkg_config" \
  $(pkg-config --cflags --libs velmora) -lm
LD_LIBRARY_PATH=$lib "$scratch/by_pkg_config" >/dev/null
echo "passed"
