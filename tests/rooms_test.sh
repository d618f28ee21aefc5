#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Order of the tree: who includes whom in src/, the licence line of every file, the length of files.
#   rooms_test.sh SOURCE
set -euo pipefail
cd "$1"

# room: the rooms that it may include, besides what those may include and itself
rooms='
base:
kernels: base
graph: base
matching: graph
metis: graph
ordering: metis graph
symbolic: graph
numeric: symbolic kernels
solve: numeric
NORV/corelib: base
NORV/precons: NORV/corelib matching ordering
NORV/solvers: NORV/precons
NORV/multilevel: NORV/solvers
NORV/bridge: NORV/multilevel
driver: matching ordering solve NORV/bridge
api: driver
'

mapfile -t sources < <(find src -name '*.cpp' -o -name '*.hpp' | LC_ALL=C sort)
((${#sources[@]})) || { echo "no sources below src/"; exit 1; }
failures=0
awk -v rooms="$rooms" '
  function room_of(path) { sub(/\/[^\/]*$/, "", path); return path }
  function fail(text) { print FILENAME ":" FNR ": " text; bad = 1 }
  BEGIN {
    count = split(rooms, line, "\n")
    for (i = 1; i <= count; ++i) {  # lower rooms stand first, so that what they reach is known
      if (split(line[i], word, /[: ]+/) == 0 || word[1] == "") continue
      room = word[1]
      known[room] = may[room, room] = 1
      for (j = 2; j in word; ++j)
        for (other in known)
          if (word[j] == other || may[word[j], other]) may[room, other] = 1
      split("", word)
    }
  }
  FNR == 1 {
    file = substr(FILENAME, 5); room = room_of(file); first = 1
    if (!known[room]) fail("not in a room that the table knows")
    header = FILENAME; sub(/cpp$/, "hpp", header)
    has_header = FILENAME ~ /cpp$/ && (getline unused < header) >= 0
    close(header)
  }
  /^#include/ {
    if (first && has_header && $2 != "\"" substr(header, 5) "\"")
      fail("the first include is not " substr(header, 5) ", which declares what is here")
    first = 0
    if ($2 !~ /^"/) next
    name = $2; gsub(/"/, "", name)
    if (name == "velmora.h" && room ~ /^NORV/ && room != "NORV/bridge")
      fail("the bridge alone calls the direct solver")
    if (name !~ /\//) {
      if ((getline unused < ("include/" name)) < 0) fail(name " does not name its room")
      close("include/" name)
    } else if ((getline unused < ("include/" name)) >= 0) {
      close("include/" name)  # part of a public header
    } else if (!known[room_of(name)]) fail(name " is in no room")
    else if (!may[room, room_of(name)]) fail(room " may not include " name)
  }
  END { exit bad }' "${sources[@]}" || failures=1

long=$(find src include tools tests bench examples -type f ! -name '*.gz' ! -name '*.md' -exec wc -l {} + |
  awk '$2 != "total" && $1 > 500 { print $2 ": " $1 " lines, more than 500" }')
[[ -z $long ]] || { echo "$long"; failures=1; }

if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  # All but data, and what has no comments.
  unmarked=$(git ls-files -z ':!*.gz' ':!*.json' ':!tests/fuzz/seeds' ':!LICENSE' ':!.gitignore' |
    xargs -0 grep -sL 'SPDX-License-Identifier: BSD-3-Clause') || true
  [[ -z $unmarked ]] || { printf 'no SPDX line:\n%s\n' "$unmarked"; failures=1; }
fi
exit "$failures"
