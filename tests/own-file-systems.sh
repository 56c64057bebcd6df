#!/usr/bin/env bash
# Runs a test that mounts file systems of its own. Nobody else sees its mounts,
# and they and all of its processes end with this one, even when it is killed
# with -9: the test is the first process of a system of its own.
#
#   own-file-systems.sh COMMAND [ARGUMENT]...
#
# Where the system does not let us, one line says so, and the exit code is 77.
set -euo pipefail

for rights in "" "--user --map-root-user"; do
  # shellcheck disable=SC2206  # words
  own=(unshare $rights --mount --propagation private --pid --fork --kill-child --mount-proc)
  if "${own[@]}" mount -t tmpfs none / 2>/dev/null; then
    TROVIK_OWN_FILE_SYSTEMS=1 exec "${own[@]}" "$@"
  fi
done
echo "this test needs a file system of its own: run it as root, or where user namespaces are allowed" >&2
exit 77
