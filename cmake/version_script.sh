#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# Writes the linker's version script.  Routines of the containers have a second name with the
# prefix NORVMORA_, which the headers do not spell out.
#   version_script.sh NODE COMPILER INCLUDE_FOLDER OUTPUT
set -eu
names=$("$(dirname "$0")/declared_names.sh" "$2" "$3")
[ -n "$names" ] || { echo "version_script: no names in $3" >&2; exit 1; }
{
  printf '%s {\nglobal:\n  NORVMORA_*;\n' "$1"
  printf '%s\n' "$names" | sed 's/.*/  &;/'
  printf 'local:\n  *;\n};\n'
} >"$4"
