#!/usr/bin/env bash
# Makes the base system; base.sh calls it in namespaces of its own.
#
#   bootstrap.sh ARCHITECTURE PACKAGE,... SUITE DIRECTORY FILE [MIRROR]
set -euo pipefail
[ -d "/proc/$FRESH_RUN" ] # killed before we were bound to it

mount -t proc proc /proc
# Packages sync every file that they write; in memory that costs nothing.
mount -t tmpfs -o mode=755 base "$4"
debootstrap --arch="$1" --variant=minbase --include="$2" "$3" "$4" ${6:+"$6"}
# A fresh machine has neither downloaded packages nor lists of them.
rm -rf "$4"/var/cache/apt/archives/*.deb "$4"/var/lib/apt/lists/*
tar --directory="$4" --one-file-system --numeric-owner --xattrs --create . | zstd --quiet -1 -T0 -o "$5"
