#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# velmora-solve from the outside: what it answers, what it prints, how it ends.
#   solve_test.sh VELMORA_SOLVE VELMORA_GALLERY EXAMPLES SCRATCH
set -uo pipefail
solve=$1 gallery=$2 examples=$3 scratch=$4
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch" || exit 1
failures=0

fail() {
  echo "FAILED: $*"
  sed 's/^/  out: /' out
  sed 's/^/  err: /' err
  failures=$((failures + 1))
}

# solves NAME PATTERN arguments: ends with 0, says nothing on standard error, prints PATTERN.
solves() {
  local name=$1 pattern=$2
  shift 2
  "$solve" "$@" >out 2>err || fail "$name: status $?"
  [[ -s err ]] && fail "$name: something on standard error"
  grep -qE -- "$pattern" out || fail "$name: no '$pattern'"
}

# refuses NAME STATUS PATTERN arguments: ends with STATUS and one line on standard error.
refuses() {
  local name=$1 expected=$2 pattern=$3
  shift 3
  "$solve" "$@" >out 2>err
  local status=$?
  [[ $status -eq $expected ]] || fail "$name: status $status instead of $expected"
  [[ $(wc -l <err) -eq 1 ]] || fail "$name: not one line on standard error"
  grep -qE -- "$pattern" err || fail "$name: no '$pattern'"
}

market() { printf '%%%%MatrixMarket matrix coordinate %s\n' "$1"; }
{ market "real symmetric"; printf '3 3 5\n1 1 4\n2 1 1\n2 2 3\n3 3 2\n3 2 -1\n'; } >spd.mtx
{ market "real symmetric"; printf '3 3 4\n1 1 2\n3 1 1\n2 2 3\n3 2 1\n'; } >saddle.mtx
# Positive diagonal and 2x2 minors, yet one eigenvalue is negative.
{ market "real symmetric"; printf '3 3 6\n1 1 1\n2 2 1\n3 3 1\n2 1 -.9\n3 1 -.9\n3 2 -.9\n'; } >trap.mtx
{ market "real general"; printf '3 3 5\n1 1 4\n1 2 1\n2 1 1\n2 2 3\n3 3 2\n'; } >mirrored.mtx
{ market "complex hermitian"; printf '2 2 3\n1 1 2 0\n2 1 1 1\n2 2 5 0\n'; } >hermitian.mtx
{ market "real skew-symmetric"; printf '4 4 4\n2 1 1\n3 2 5\n4 3 2\n4 1 1\n'; } >skew.mtx
{ market "complex hermitian"; printf '3 3 5\n1 1 2 0\n2 1 1 1\n2 2 -5 0\n3 3 1 0\n3 1 0 3\n'; } >indefinite.mtx
{ market "real symmetric"; printf '2 2 3\n1 1 nan\n2 2 1\n2 1 0\n'; } >nan.mtx
{ market "real symmetric"; printf '2 2 3\n1 1 2\n2 2 2\n2 1 inf\n'; } >inf.mtx
{ market "real symmetric"; printf '3 3 2\n1 1 1\n2 2 1\n'; } >empty_row.mtx
{ market "real symmetric"; printf '2 2 2\n1 1 4\n2 2 -5\n'; } >diagonal.mtx
{ market "real general"; printf '3 3 5\n1 2 4\n2 1 1\n2 3 3\n3 3 2\n1 1 1\n'; } >unsym.mtx
{ market "real general"; printf '3 3 3\n1 2 4\n2 3 1\n3 1 3\n'; } >permutation.mtx
{ market "real symmetric"; printf '4 4 4\n1 1 4\n2 2 0\n3 3 1\n4 4 1\n'; } >zero_2.mtx
{ market "real symmetric"; printf '2 2 2\n1 1 0\n2 2 1\n'; } >zero_1.mtx
{ market "real symmetric"; printf '4 4 4\n1 1 4\n2 2 3\n3 3 1\n4 4 0\n'; } >zero_4.mtx
printf '1 1 3\n' >rhs.txt
printf '1 2\n' >short.txt

solves "a definite matrix" '^type +2 .*Cholesky' spd.mtx
solves "its inertia" '^inertia +3 positive, 0 negative$' spd.mtx
solves "a saddle point" '^inertia +2 positive, 1 negative$' saddle.mtx
solves "the way back from Cholesky" 'not positive definite.*; now as real symmetric indefinite$' trap.mtx
solves "inertia after the way back" '^inertia +2 positive, 1 negative$' trap.mtx
"$solve" trap.mtx --quiet --json report.json >out 2>err
grep -q '"reason": "Cholesky found that it is not definite"' report.json ||
  fail "the reason of another type"
solves "symmetry in a general file" '^type +2 ' mirrored.mtx
solves "a diagonal matrix" '^status +solved' diagonal.mtx
solves "a diagonal matrix by force" '^inertia +1 positive, 1 negative$' diagonal.mtx --type sym
solves "the demo system" '^status +solved' "$examples/bracket.mtx.gz" --rhs "$examples/bracket_load.mtx.gz"
solves "two threads" '2 threads' "$examples/bracket.mtx.gz" --threads 2
solves "minimum degree" '^status +solved' "$examples/bracket.mtx.gz" --ordering mmd --type sym
solves "repetition" 'again +3 times' "$examples/bracket.mtx.gz" --refactor 3 --resolve 2 --threads 1
solves "a Hermitian matrix" '^type +4 ' hermitian.mtx
for matrix in hermitian indefinite; do
  solves "the transpose, $matrix" '^error +([0-9.]+e-1[5-9]|0)' $matrix.mtx --transpose --nrhs 2 --resolve 1
done
solves "a skew-symmetric matrix" '^type +11 ' skew.mtx
solves "its solution" '^error +([0-9.]+e-1[5-9]|0)' skew.mtx
solves "an unsymmetric matrix" '^type +11 .*not symmetric' unsym.mtx
solves "its transpose" '^status +solved' unsym.mtx --transpose --rhs-kind random --nrhs 3
solves "a permutation" '^status +solved' permutation.mtx
solves "its transpose" '^error +0' permutation.mtx --transpose
solves "a symmetric matrix as unsymmetric" '^type +11 ' saddle.mtx --type unsym
solves "a real matrix as complex" '^type +13 ' saddle.mtx --type complex-unsym
solves "standard input" '^status +solved' - <spd.mtx
solves "only the check" '^check .*passed' saddle.mtx --check
solves "the library's report" 'Summary VELMORA' spd.mtx --msglvl 1
solves "determinant" 'A\| = 2\.890371758' spd.mtx --determinant    # ln 18

# The solution of spd.mtx for (1, 1, 3) is (0, 1, 2), written and read back as a right-hand side.
solves "a solution file" '^written' spd.mtx --rhs rhs.txt --output x.mtx.gz
gzip -dc x.mtx.gz | awk 'NR > 2 { d = $1 - (NR - 3); if (d * d > 1e-24) bad = 1; ++n }
                         END { exit bad || n != 3 }' || fail "a wrong solution"
# Its inverse times the determinant 18.
solves "an inverse" '^inverse .* 5 entries' spd.mtx --inverse i.mtx --inverse-diagonal d.mtx.gz
tail -n +3 i.mtx | tr '\n' ' ' | awk '{ want = "1 1 5 2 1 -2 2 2 8 3 2 4 3 3 11"; k = split(want, w, " ")
                        for (i = 1; i <= k; ++i) if (($i * (i % 3 ? 1 : 18) - w[i]) ^ 2 > 1e-24) bad = 1
                        exit bad || NF != k }' && head -1 i.mtx | grep -q 'coordinate real symmetric' ||
  fail "a wrong inverse"
gzip -dc d.mtx.gz | awk 'NR > 2 { d = 18 * $1 - (NR == 3 ? 5 : NR == 4 ? 8 : 11); if (d * d > 1e-24) bad = 1 }
                         END { exit bad || NR != 5 }' || fail "a wrong diagonal of the inverse"
solves "the inverse of a Hermitian matrix" '^written' hermitian.mtx --inverse h.mtx
# [2 1-i; 1+i 5] has the inverse [5 -1+i; -1-i 2] / 8.
tail -n +3 h.mtx | awk '$1 == 2 && $2 == 1 { ok = ($3 + 0.125)^2 + ($4 + 0.125)^2 < 1e-24 } END { exit !ok }' ||
  fail "a wrong inverse of a Hermitian matrix"
solves "the inverse of a diagonal matrix" '^inverse' diagonal.mtx --inverse-diagonal d.mtx
tail -1 d.mtx | grep -qx -- '-0.2' || fail "a wrong inverse of a diagonal matrix"
solves "many right-hand sides" '^error +[0-9.]+e-1[0-9]' "$examples/bracket.mtx.gz" --nrhs 4

"$solve" saddle.mtx --json - >out 2>err || fail "JSON: status"
grep -q '"status": "solved"' out && grep -q '"negative": 1' out && head -c 1 out | grep -q '{' ||
  fail "JSON on standard output"
"$solve" "$examples/bracket.mtx.gz" --quiet >out 2>err || fail "quiet: status"
[[ -s out || -s err ]] && fail "quiet is not"

refuses "no file" 1 'cannot open nowhere.mtx' nowhere.mtx
refuses "a folder" 1 'cannot read' .
refuses "NaN" 1 'NaN .*checker error 300' nan.mtx
refuses "infinity" 1 'inf .*checker error 301' inf.mtx
refuses "a singular matrix" 1 'velmora-solve: ' empty_row.mtx --rhs-kind ones
for row in 1 2 4; do
  refuses "a diagonal matrix with a zero in row $row" 1 \
    "diagonal matrix row $row; that row holds a zero" zero_$row.mtx
done
# Consistent or not, a singular matrix is not solved, nor is its zero eigenvalue a certain sign.
{ market "real symmetric"; printf '4 4 8\n1 1 2\n2 2 2\n3 3 2\n4 4 2\n2 1 -1\n3 2 -1\n4 3 -1\n4 1 -1\n'; } >ring.mtx
{ market "real symmetric"; printf '4 4 8\n1 1 2\n2 2 2\n3 3 3\n4 4 2\n2 1 -1\n3 2 -1\n4 3 -1\n4 1 -1\n'; } >no_ring.mtx
for kind in row-sums ones; do
  refuses "a ring, $kind" 1 'singular to working precision' ring.mtx --rhs-kind $kind
  grep -qE '^inertia .*, of which 1 uncertain' out || fail "a ring, $kind: its zero eigenvalue"
  grep -qE '^near-singular +at least 1 eigenvalue' out || fail "a ring, $kind: near-singular"
  grep -qE ' zero' out && fail "a ring, $kind: zero eigenvalues are not known"
done
solves "no ring" '^inertia +4 positive, 0 negative$' no_ring.mtx
"$solve" ring.mtx --rhs-kind ones --quiet --json report.json >out 2>err
grep -q '"zero": null' report.json && grep -q '"uncertain": 1' report.json || fail "JSON of a ring"
figure=$(grep -oE 'residual [0-9.e+-]+' err | head -1)
"$solve" ring.mtx --rhs-kind ones >out 2>err
grep -E '^residual' out | grep -qF "${figure#residual }" || fail "a failure quotes another residual"
# Rows of several sizes: what defaults get wrong is solved, with every choice of a first attempt.
"$gallery" kkt --size 6 --seed 4 --output kkt.mtx >out 2>err
"$gallery" stokes --size 12 --output stokes.mtx >out 2>err
for matrix in kkt stokes; do
  for option in "" --robust --single "--pivoting diagonal"; do
    solves "$matrix $option" '^accuracy .*verdict [01]' $matrix.mtx $option --rhs-kind random
  done
done
refuses "a type that does not fit" 1 'complex values' hermitian.mtx --type spd
refuses "Cholesky by force" 1 'not positive definite' trap.mtx --type spd
refuses "a short right-hand side" 1 'short.txt has 2 rows, the matrix 3' spd.mtx --rhs short.txt
for option in --output --spy --plot-convergence --json; do
  refuses "no place for a file" 1 'cannot write /nowhere/x: No such file' spd.mtx $option /nowhere/x
  [[ -s out ]] && fail "no place for $option: found after the work had begun"
done
refuses "a folder in the place of a file" 1 'cannot write .: Is a directory' spd.mtx --output .
refuses "an impossible tolerance" 1 'above the tolerance' "$examples/bracket.mtx.gz" --tolerance 0 \
  --rhs-kind random
refuses "no input" 2 'give a Matrix Market file'
refuses "an unknown option" 2 'not expected: --fast' spd.mtx --fast
refuses "an entry it could not follow" 2 'use --transpose' spd.mtx --iparm 12=1
refuses "an unknown type" 2 "unknown type 'best'" spd.mtx --type best
"$solve" nan.mtx --json report.json >out 2>err
grep -q '"status": "failed"' report.json || fail "JSON of a failure"

# A dump of the library is solved again, with its right-hand side.
VELMORA_WRITE_MAT=1 VELMORA_WRITE_PREFIX=case "$solve" saddle.mtx --quiet >out 2>err
dump=$(ls case_*-phase-22.iajaa 2>/dev/null | head -1)
if [[ -n $dump ]]; then
  solves "a replay" '^inertia +2 positive, 1 negative$' --replay "$dump"
  head -5 "$dump" >cut.iajaa
  refuses "half a dump" 1 'the dump ends before' --replay cut.iajaa
  sed '4s/.*/99/' "$dump" >wrong.iajaa
  refuses "a damaged dump" 1 'is not between' --replay wrong.iajaa
else
  fail "no dump was written"
fi
printf '2\n3\n1\n3\n4\n1\n2\n2\n2\n1\n3\n4\n5\n' >with_rhs.iajaa
"$gallery" grid3d --size 18 --output cube.mtx >out 2>err
solves "iterations" '^status +solved' cube.mtx --iterative --tolerance 1e-8 --json iterations.json
grep -qE '^iteration +10 +relative residual' out || fail "iterations are not shown"
grep -q '"history"' iterations.json || fail "no history of the residual"
refuses "an iteration limit" 1 'error -100: no convergence' cube.mtx --iterative --dparm 1=2
solves "iterations for an unsymmetric matrix" '^status +solved' unsym.mtx --iterative
refuses "a type without iterations" 1 'does not cover type 13' unsym.mtx \
  --type complex-unsym --iterative
# Methods and preconditioners by name: each of the list that takes a definite matrix solves one.
solves "the list" '^  XFSAI +symmetric  yes' --list
methods=$(sed -n '/^Methods/,/^$/s/^  \([A-Z0-9]*\) .*/\1/p' out)
precons=$(sed -n '/^Precond/,$s/^  \([A-Z0-9_]*\) .*/\1/p' out)
[[ $(wc -w <<<"$methods") -eq 11 && $(wc -w <<<"$precons") -eq 28 ]] || fail "the list is not whole"
"$gallery" grid2d --size 12 --output definite.mtx >out 2>err
for name in $precons; do
  case $name in
    CP_DIRECT | SCHILDERS | AUGBLOCK) continue ;;
  esac
  method=SQMR
  case $name in
    SOR | ILU* | BLOCK*) method=BICGSTAB ;;
  esac
  solves "$name" "^setup .* $name" definite.mtx --iterative --method $method --preconditioner "$name" \
    --tolerance 1e-7
done
for name in $methods; do
  solves "$name" "^solution .*$name\$" definite.mtx --iterative --method "$name" --tolerance 1e-7
done
solves "two right-hand sides" '^solution .* 2 right-hand sides' definite.mtx --iterative --nrhs 2 \
  --method pcg --preconditioner smaggr:i0=1,i3=1 --refactor 1 --resolve 2 --tolerance 1e-7 --json pair.json
grep -q '"preconditioner": "SMAGGR"' pair.json || fail "no preconditioner in the report"
solves "a transpose" '^status +solved' unsym.mtx --iterative --method QMR --preconditioner ILUT --transpose
solves "a Hermitian matrix" '^status +solved' indefinite.mtx --iterative --method MINRES --tolerance 1e-8
refuses "an unknown method" 2 "unknown method 'FOO'" spd.mtx --iterative --method FOO
refuses "an unknown preconditioner" 2 'see --list' spd.mtx --iterative --preconditioner FOO
refuses "names without iterations" 2 'need --iterative' spd.mtx --method PCG
refuses "an unsymmetric preconditioner" 1 'ILUT is none' definite.mtx --iterative --method PCG \
  --preconditioner ILUT
refuses "a preconditioner without use" 1 'takes no preconditioner' definite.mtx --iterative \
  --method GS --preconditioner DIAG
refuses "an unsymmetric matrix" 1 'needs a symmetric type' unsym.mtx --iterative --preconditioner XFSAI
refuses "a wrong parameter" 1 'is not iN=VALUE' spd.mtx --iterative --preconditioner DIAG:k=1
refuses "a parameter that is none" 1 'ended with an error' unsym.mtx --iterative \
  --preconditioner ILUT:i8=7
refuses "settings that don't reach it" 1 'dparm.5. does not reach' definite.mtx --iterative \
  --method PCG --dparm 5=0.1
refuses "iterations that don't get there" 1 'above the tolerance' definite.mtx --iterative \
  --method PCG --dparm 1=3
refuses "a factor that is not there" 2 'spy' spd.mtx --iterative --spy x.png
solves "the right-hand side of a dump" 'right side +of the dump' --replay with_rhs.iajaa --output x.mtx
tail -2 x.mtx | tr '\n' ' ' | awk '{ exit !(($1-1.4)^2 < 1e-24 && ($2-1.2)^2 < 1e-24) }' ||
  fail "the solution of the dump"

"$gallery" grid2d --size 12 --output grid.mtx >out 2>err
if command -v gnuplot >/dev/null; then
  solves "pictures" '^drawn +r.png' grid.mtx --spy s.png --plot-convergence r.png
  for picture in s.png r.png; do
    [[ $(head -c 4 $picture | tail -c 3) == PNG ]] || fail "$picture is no picture"
  done
  solves "a picture with matched rows" '^drawn +u.png' unsym.mtx --type unsym --spy u.png
fi

for kind in grid2d grid3d elasticity saddle stokes kkt shifted convection helmholtz magnetic; do
  "$gallery" "$kind" --size 5 --output "$kind.mtx" >out 2>err || fail "gallery $kind"
  solves "gallery $kind" '^status +solved' "$kind.mtx"
done
"$gallery" cube --size 5 --output x.mtx >out 2>err && fail "an unknown kind was written"

[[ $failures -eq 0 ]] && echo "passed" || exit 1
