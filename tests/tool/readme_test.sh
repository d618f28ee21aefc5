#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Does what README, the guide and the manual pages tell a reader to do, page by page: runs every
# command, compiles and runs every program, follows every link.
#   readme_test.sh SOURCE SCRATCH        installs below SCRATCH; leaves out ./dev test, its caller
#   readme_test.sh SOURCE SCRATCH bare   changes nothing: for a machine that may be thrown away
set -uo pipefail
source=$1 scratch=$2 bare=${3:-}
failures=0 programs=0 commands=0
rm -rf "$scratch"
mkdir -p "$scratch/pages"
[[ -z ${VELMORA_READING:-} ]] || { echo "a page made its own test run"; exit 1; }
for python in /usr/bin/python3 python3 ''; do  # the first one that has what the package needs
  if [[ -n $python ]] && "$python" -c 'import scipy' 2>/dev/null; then break; fi
done
prefix=/usr/local
if [[ -z $bare ]]; then
  export VELMORA_READING=1
  export DESTDIR=$scratch/root
  prefix=$DESTDIR/usr/local
  export PATH=$prefix/bin:$PATH MANPATH=$prefix/share/man: MANPAGER=cat
  export LD_LIBRARY_PATH=$prefix/lib LIBRARY_PATH=$prefix/lib CPATH=$prefix/include
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
fi
export PYTHONPATH=$prefix/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1

fail() {
  [[ -s log ]] && tail -20 log
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# The folder in which a page is tried: the tree as far as pages speak of it, and the reader's files.
new_folder() {
  mkdir -p "$scratch/$1"
  cd "$scratch/$1" || exit 1
  ln -s "$source/examples" examples
  printf '#!/bin/sh\nexec %q/dev "$@"\n' "$source" >dev
  chmod +x dev
  cp examples/bracket.mtx.gz matrix.mtx.gz
  gunzip -c matrix.mtx.gz >matrix.mtx
  gunzip -c examples/bracket_load.mtx.gz >b.mtx
}

# Splits a page into its fenced blocks, block-N.LANGUAGE in the order of the page.
split_page() {
  awk '/^```[a-z0-9]+$/ && !inside { inside = 1; file = sprintf("block-%02d.%s", ++n, substr($0, 4)); next }
       /^```$/ && inside { inside = 0; close(file); next }
       inside { print > file }' "$1"
}

# The same for the examples of a manual page: commands in section 1, a fragment of C in section 3.
split_manual() {
  awk -v language="$([[ $1 == *.1 ]] && echo sh || echo fragment)" '
    /^\.SH EXAMPLE/ { example = 1 }
    /^\.nf$/ && example { inside = 1; file = sprintf("block-%02d.%s", ++n, language); next }
    /^\.fi$/ { inside = 0; example = 0 }
    inside { gsub(/\\-/, "-"); print > file }' "$1"
  local fragment
  for fragment in block-*.fragment; do
    { printf '#include <velmora.h>\n#include <stddef.h>\nint main(void) {\n'
      cat "$fragment"
      printf 'return error;\n}\n'; } >"${fragment%.fragment}.c"
  done
}

compile_and_run() {  # file, compiler with its flags
  ((++programs))
  "${@:2}" "$1" -o block -lvelmora -lm >log 2>&1 || { fail "$page: $1 does not compile"; return; }
  ./block >log 2>&1 || fail "$page: $1 does not run"
}

run_command() {
  case $1 in
    '' | '#'*) return ;;
    './dev test'*) [[ -n $bare ]] || return ;;
    *--spy* | *--plot*) command -v gnuplot >/dev/null || return ;;
    python3\ *)
      [[ -n $python ]] || return
      set -- "$python ${1#python3 }"
      ;;
    man\ *) command -v man >/dev/null || return ;;
    gfortran\ *) command -v gfortran >/dev/null || return ;;
    apt-get\ *)
      command -v apt-get >/dev/null || return
      [[ -n $bare ]] || set -- "apt-get --simulate ${1#apt-get }"
      ;;
  esac
  ((++commands))
  bash -c "$1" >log 2>&1 </dev/null || fail "$page: $1"
}

try_blocks() {
  local file line
  for file in block-*; do
    case $file in
      *.c)
        compile_and_run "$file" cc -std=c99 -Wall -Werror
        cp -n "$file" program.c
        ;;
      *.cpp) compile_and_run "$file" c++ -std=c++17 -Wall -Werror ;;
      *.f90)
        if command -v gfortran >/dev/null; then compile_and_run "$file" gfortran "-I$prefix/include"; fi
        cp -n "$file" program.f90
        ;;
      *.python)
        [[ -n $python ]] || continue
        ((++programs))
        "$python" "$file" >log 2>&1 || fail "$page: $file does not run"
        cp -n "$file" program.py
        ;;
      *.sh)
        while IFS= read -r line; do
          line=${line%%  #*}
          line=${line%"${line##*[! ]}"}
          run_command "$line"
        done <"$file"
        ;;
    esac
  done
}

follow_links() {
  local target
  while IFS= read -r target; do
    [[ $target == http* || -e $(dirname "$1")/${target%%#*} ]] || fail "$page: dead link $target"
  done < <(awk '/^```/ { code = !code } !code' "$1" | grep -oE '\]\([^)#][^)]*\)' | sed 's/^](//; s/)$//')
}

shopt -s nullglob
for file in "$source"/README.md "$source"/docs/*.md "$source"/docs/site/*.md "$source"/docs/man/*; do
  page=${file#"$source"/}
  new_folder "pages/${page//\//-}"
  case $page in
    *.md) split_page "$file" ;;
    *) split_manual "$file" ;;
  esac
  [[ $page == docs/distributed.md ]] || try_blocks  # needs PETSc: ./dev distributed runs that one
  [[ $page == docs/site/* ]] || follow_links "$file"  # ./dev docs follows those of the site
done
for file in "$source"/bench/README.md "$source"/bench/results/*.md; do
  page=${file#"$source"/}
  follow_links "$file"
done

((programs > 0 && commands > 0)) || fail "nothing was found to try"
echo "$programs programs, $commands commands, $failures failures"
exit $((failures > 0))
