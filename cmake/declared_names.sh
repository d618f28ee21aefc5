#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# Names of the functions and variables that the public headers declare, one a line, sorted.
# Reads what the preprocessor leaves of them, so that spellings made by macros are found too.
#   declared_names.sh COMPILER INCLUDE_FOLDER
set -eu
compiler=$1 include=$2
text=$(for header in "$include"/*.h; do
  printf '#include "%s"\n' "$header"
done | $compiler -E -I "$include" -x c -)  # its failure is the script's
printf '%s\n' "$text" | LC_ALL=C awk -v folder="$include/" '
  # Line markers tell the file; text of the system headers is left out.
  /^# [0-9]+ "/ { split($0, part, "\""); ours = index(part[2], folder) == 1; next }
  ours { text = text " " $0 }
  END {
    gsub(/__attribute__ *\(\([^()]*(\([^()]*\))?\)\)/, " ", text)
    count = length(text)
    for (i = 1; i <= count; ++i) {
      c = substr(text, i, 1)
      if (c == "{") ++depth
      else if (c == "}") { --depth; if (statement ~ /\)[ ]*$/) statement = "" }
      else if (depth > 0) continue
      else if (c == ";") { emit(statement); statement = "" }
      else statement = statement c
    }
  }
  function emit(s) {
    sub(/^ +/, "", s)
    if (s ~ /^(typedef|static)/) return
    if (s !~ /\(/ && s !~ /^extern/) return  # a record
    sub(/ *[(\[].*/, "", s)
    sub(/ +$/, "", s)
    sub(/.*[ *]/, "", s)
    if (s != "") print s
  }' | LC_ALL=C sort -u
