#!/usr/bin/env bash
# Compiles every C, C++ and Fortran program that README and the guide show, runs them, and runs
# the velmora commands that they show, so that no page promises what isn't so.
#   readme_test.sh SOURCE BUILD SCRATCH
set -uo pipefail
source=$1 build=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch" || exit 1
ln -s "$source/examples" examples
ln -s examples/bracket.mtx.gz matrix.mtx.gz
export PATH=$build/tools:$PATH LD_LIBRARY_PATH=$build
failures=0 blocks=0 commands=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# Writes the fenced blocks of a page to block-PAGE-N.LANGUAGE.
split() {
  awk -v page="$(basename "$1" .md)" '
    /^```[a-z0-9]+$/ && !inside { inside = 1; file = sprintf("block-%s-%d.%s", page, ++n, substr($0, 4)); next }
    /^```$/ && inside { inside = 0; close(file); next }
    inside { print > file }' "$1"
}

for page in "$source"/README.md "$source"/docs/*.md; do split "$page"; done

compile_and_run() {  # compiler, file, arguments
  local file=$2
  ((++blocks))
  "$@" -o program -I"$source/include" -L"$build" -lvelmora -lm 2>log || {
    cat log
    fail "$file does not compile"
    return
  }
  ./program >log 2>&1 || {
    cat log
    fail "$file does not run"
  }
}
shopt -s nullglob
for file in block-*.c; do compile_and_run cc "$file" -std=c99 -Wall -Werror; done
for file in block-*.cpp; do compile_and_run c++ "$file" -std=c++17 -Wall -Werror; done
for file in block-*.f90; do
  command -v gfortran >/dev/null && compile_and_run gfortran "$file"
done

# Commands: those of the two programs run; a verb of ./dev must exist; the rest is the shell's.
for file in block-*.sh; do
  while IFS= read -r line; do
    line=${line%%  #*}
    case $line in
      *--spy* | *--plot*)
        command -v gnuplot >/dev/null || continue
        ;;&
      *velmora-solve\ * | *velmora-gallery\ *)
        ((++commands))
        bash -c "$line" >log 2>&1 || {
          cat log
          fail "$file: $line"
        }
        ;;
      ./dev\ *)
        verb=${line#./dev }
        "$source/dev" help 2>&1 | grep -q "^  ${verb%% *} " || fail "$file: no verb in '$line'"
        ;;
    esac
  done <"$file"
done

# Links between the pages.
for page in "$source"/README.md "$source"/docs/*.md; do
  while IFS= read -r target; do
    [[ $target == http* || -e $(dirname "$page")/${target%%#*} ]] || fail "$page: dead link $target"
  done < <(awk '/^```/ { code = !code } !code' "$page" | grep -oE '\]\([^)#][^)]*\)' | sed 's/^](//; s/)$//')
done

((blocks > 0 && commands > 0)) || fail "nothing was found to try"
echo "$blocks programs, $commands commands"
exit $((failures > 0))
