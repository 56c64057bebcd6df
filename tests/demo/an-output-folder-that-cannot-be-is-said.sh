#!/usr/bin/env bash
# The output folder is a file, or lies below one.
source "$(dirname "$0")/harness.sh"

ball s/one.pov
echo "not a folder" >file

render s/one.pov --out file
expect_status 2
expect_text "file"

for folder in file file/below; do
  render s/one.pov --set "OutputFolder=$tree/$folder"
  [ "$status" -eq 1 ] || [ "$status" -eq 2 ] || fail "OutputFolder=$folder ends with exit code $status"
  expect_text "$tree/file"
done
[ "$(cat file)" = "not a folder" ] || fail "the file was overwritten"
