#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# README on a machine that has nothing: makes a minimal Debian below DIRECTORY and follows the
# pages in it as root, from the first command to the last.  Needs root and debootstrap.
#   bare_machine.sh SOURCE DIRECTORY
set -euo pipefail
source=$(realpath "$1") root=$(realpath -m "$2")
[[ $(id -u) -eq 0 ]] || { echo "bare_machine: needs root for chroot" >&2; exit 1; }
[[ ! -e $root ]] || { echo "bare_machine: $root exists; remove it first" >&2; exit 1; }

debootstrap --variant=minbase "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root"
cp /etc/resolv.conf "$root/etc/"
unmount() { umount "$root/proc" "$root/dev" 2>/dev/null || true; }
trap unmount EXIT
mount --bind /proc "$root/proc"
mount --bind /dev "$root/dev"

mkdir "$root/root/velmora"
git -C "$source" ls-files -z | tar -C "$source" --null -T - -c | tar -C "$root/root/velmora" -x
chroot "$root" env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
  /root/velmora/tests/tool/readme_test.sh /root/velmora /root/reader bare
