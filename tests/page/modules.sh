#!/usr/bin/env bash
# Installs what drives a browser: exactly the versions of package-lock.json.
#
#   modules.sh FOLDER
#
# FOLDER keeps them, and is left alone where it has them already.
set -euo pipefail
folder=$1
here=$(cd "$(dirname "$0")" && pwd)

mkdir -p "$folder"
if ! cmp -s "$here/package-lock.json" "$folder/installed"; then
  cp "$here/package.json" "$here/package-lock.json" "$folder/"
  npm=npm # with some packages of nodejs it comes along, of others it is one
  (cd "$folder" && "$npm" ci --ignore-scripts --no-audit --no-fund --loglevel=error)
  cp "$here/package-lock.json" "$folder/installed"
fi
