# shellcheck shell=bash
# What proofs share on names that a program refuses; sourced by them.
#
#   refused WHAT   nothing was started, for a letter in the scene's name

refused() { # WHAT
  [ "$status" -eq 2 ] || fail "exit code $status"
  grep -qF -e " does not take the scene file " "$tree/.errors" || fail "it is not refused by its name"
  grep -qF -e ": its name holds $1" "$tree/.errors" || fail "it is not refused for $1"
}
