#!/usr/bin/env bash
# Drives the page in Debian's Chromium, over the real server and real renders of a
# small renderer.
#
#   run.sh TROVIK MODULE FOLDER NODE CHROMIUM
#
# FOLDER keeps what npm installs. With TROVIK_PAGE_LOOKS=update the layout of all
# views is written anew (look at them first: TROVIK_PAGE_SHOTS=DIRECTORY takes
# pictures of them).
set -euo pipefail
program=$1 module=$2 folder=$3 node=$4 chromium=$5
here=$(cd "$(dirname "$0")" && pwd)

"$here/modules.sh" "$folder"
export TROVIK=$program TROVIK_MODULE=$module TROVIK_PAGE_MODULES=$folder CHROMIUM=$chromium
exec "$node" --test "$here/page.test.mjs"
