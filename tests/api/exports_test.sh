#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The shared library exports what the public headers declare, and nothing else.
#   exports_test.sh LIBRARY SOURCE COMPILER
set -euo pipefail
library=$1 source=$2 compiler=$3
declared=$("$source/cmake/declared_names.sh" "$compiler" "$source/include")
exported=$(nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' |
  LC_ALL=C sort -u)
failures=0

# Each marker of an export in the headers that a program can include stands for a name at least.
# (A header that norv.h leaves out declares what is being built.)
mapfile -t headers < <(for header in "$source"/include/*.h; do $compiler -MM -I "$source/include" "$header"; done |
  grep -oE '[^ ]+/include/[^ ]+\.h' | LC_ALL=C sort -u)
markers=$(grep -hoE '^ *(VELMORA_API|NORV_API) ' "${headers[@]}" | wc -l)
(($(wc -l <<<"$declared") >= markers)) || {
  echo "fewer names were read than the headers mark: $(wc -l <<<"$declared") of $markers"
  failures=1
}
# A name with the prefix is the routine itself, at the same address.
addresses=$(nm -D --defined-only "$library" | awk '{ sub(/@.*/, "", $3); print $1, $3 }')
second=$(grep '^NORVMORA_' <<<"$exported" || true)
if wrong=$(awk '{ at[$2] = $1 }
     END { for (name in at) if (sub(/^NORVMORA_/, "", name) && at[name] != at["NORVMORA_" name]) print name }' \
  <<<"$addresses") && [[ -n $wrong ]]; then
  echo "second names that are not the routine itself: $wrong"
  failures=1
fi
[[ -n $second ]] || { echo "no second names"; failures=1; }

report() {
  [[ -z $2 ]] || { echo "$1:"; sed 's/^/  /' <<<"$2"; failures=1; }
}
report "declared, not exported" "$(LC_ALL=C comm -23 <(echo "$declared") <(echo "$exported"))"
report "exported, not declared" \
  "$(LC_ALL=C comm -13 <(echo "$declared") <(grep -v '^NORVMORA_' <<<"$exported"))"
exit "$failures"
