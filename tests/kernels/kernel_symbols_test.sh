#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# A unit compiled for a wide instruction set must not define a library template: the linker may
# keep that copy for the whole library, which then fails on a processor without the set.
# usage: kernel_symbols_test.sh OBJECT...   (built as kernels_ISA)
set -euo pipefail
(($#)) || { echo "no object to look at"; exit 1; }
for object in "$@"; do
  isa=$(sed -E 's/.*velmora_kernels_([a-z0-9]+)\..*/\1/' <<<"$object")
  symbols=$(nm -C --defined-only "$object" | grep -E ' [TWVuRDB] ' || true)
  [[ $symbols == *"vlm::$isa::"* ]] || { echo "$object: none of its own symbols"; exit 1; }
  if foreign=$(grep -v "vlm::$isa::" <<<"$symbols"); then
    printf '%s\n' "$object defines what does not belong to it:" "$foreign"
    exit 1
  fi
done
