#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Each allocation of velmora-solve fails once, in several runs: the program ends by itself, with one
# line where it fails.
#   tool_test.sh VELMORA_SOLVE FAULT_LIBRARY SCRATCH
set -uo pipefail
solve=$1 library=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch" || exit 1
failures=0

survives() {
  OMP_NUM_THREADS=1 LD_PRELOAD=$library "$solve" "$@" --threads 1 >out 2>err && return
  echo "FAILED: $*"
  cat err
  failures=$((failures + 1))
}

printf '%%%%MatrixMarket matrix coordinate real symmetric\n4 4 7\n1 1 4\n2 2 4\n3 3 -4\n4 4 4\n2 1 1\n3 2 1\n4 3 -1\n' >small.mtx
printf '%%%%MatrixMarket matrix coordinate complex general\n2 2 3\n1 1 1 1\n1 2 2 0\n2 1 0 3\n' >complex.mtx
gzip -k small.mtx

survives --help
survives
survives nowhere.mtx
survives small.mtx --quiet
survives small.mtx.gz --json report.json --output x.mtx --rhs-kind random --nrhs 3
survives small.mtx --type unsym --matching 2 --msglvl 1
survives complex.mtx --robust --refine 3 --transpose
exit "$((failures > 0))"
