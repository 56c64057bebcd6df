# shellcheck shell=bash
# What the proofs of the shipped types share. `run.sh` sources it and then the
# proof of a type, `NAME.sh`, whose every function `case_WHAT` is a test of its
# own. A case works in an empty folder, with a home of its own, and runs the
# real program through trovik:
#
#   render TYPE SCENE [ARGUMENT]...   trovik run; leaves $status and the events
#   render_without TYPE SCENE [ARG]…  submits, removes the scene, works it off
#   render_killed TYPE SCENE [ARG]…   kills the program (-9) once it has used a
#                                     tenth of a second of processor time
#   good [FRAMES]                     the run was good (of these frames, as "1-2")
#   bad RULE PATTERN                  it failed; rule and reason of every failure
#   failures_are FRAMES...            the frames that failed
#   images_are FILE...                what the job counts as its images, sorted
#   folder_has FOLDER FILE...         exactly these files lie in a folder
#   png_is FILE WIDTH HEIGHT          the size of a PNG
#   said TEXT / never_said TEXT       a line of the program's output holds it
#   log_line PATTERN                  the same by a grep -E pattern
#   read_only FOLDER                  makes it a folder that nobody may write to
#   full FOLDER [BYTES]               makes it a full disk, but for so many bytes
#   fail TEXT
#
# A case that calls read_only or full itself, not through another function, is
# run where it can mount; where nobody may, ctest reports it as skipped.
#
# Patterns are the shell's. RULE is the "rule" of the JSON events: "error line",
# "result" (exit code or success texts), "files", "signal", "start".
set -euo pipefail

LC_ALL=C.UTF-8
export LC_ALL
unset TROVIK_SETTINGS TROVIK_OPTIONS TROVIK_STATE TROVIK_IMAGE_HELPER LANGUAGE DISPLAY CDPATH

fail() {
  echo "FAILED: $*" >&2
  if [ -s "$tree/.events" ]; then
    echo "--- events:" >&2
    cat "$tree/.events" >&2
  fi
  if [ -s "$tree/.errors" ]; then
    echo "--- errors:" >&2
    cat "$tree/.errors" >&2
  fi
  for log in "$XDG_STATE_HOME"/trovik/logs/*/*.log; do
    [ -e "$log" ] || continue
    echo "--- $log (its end):" >&2
    tail -n 40 "$log" >&2
  done
  exit 1
}

call_trovik() {
  status=0
  "$trovik" "$@" >"$tree/.events" 2>"$tree/.errors" </dev/null || status=$?
}

render() { # TYPE SCENE [ARGUMENT]...
  call_trovik run --new --json "$@"
}

render_without() { # TYPE SCENE [ARGUMENT]...
  call_trovik submit --json "$@"
  [ "$status" -eq 0 ] || fail "trovik submit ended with exit code $status"
  rm -f -- "$2"
  call_trovik engine --job last --until-empty --json
}

# The process group of the program that trovik started, once it is at work.
program_group() { # TROVIK'S PROCESS
  local process group
  while kill -0 "$1" 2>/dev/null; do
    for process in $(pgrep -P "$1" || true); do
      group=$(sed 's/.*) //' "/proc/$process/stat" 2>/dev/null | cut -d ' ' -f 3) || continue
      [ "$group" = "$process" ] || continue
      case $(readlink "/proc/$process/exe" 2>/dev/null) in
      */trovik-image | */trovik) continue ;;
      esac
      group_time "$group" && echo "$group" && return 0
    done
    sleep 0.02
  done
  return 1
}

# Whether a group has used ten ticks, a tenth of a second: it is midway.
group_time() { # GROUP
  local total=0 user system
  while read -r user system; do
    total=$((total + user + system))
  done < <(
    for process in $(pgrep -g "$1"); do
      sed 's/.*) //' "/proc/$process/stat" 2>/dev/null | cut -d ' ' -f 12,13
    done
  )
  [ "$total" -ge 10 ]
}

render_killed() { # TYPE SCENE [ARGUMENT]...
  local group
  "$trovik" run --new --json "$@" >"$tree/.events" 2>"$tree/.errors" </dev/null &
  pid=$!
  group=$(program_group "$pid") || fail "the program ended before it could be killed"
  kill -KILL -- "-$group"
  status=0
  wait "$pid" || status=$?
  pid=
}

events() { # JQ PROGRAM
  jq -r "$1" "$tree/.events"
}

good() { # [FRAMES]
  [ "$status" -eq 0 ] || fail "a good run is called bad (exit code $status)"
  [ "$(events 'select(.kind == "run.summary") | .works.failed')" = 0 ] || fail "a work failed"
  if [ $# -gt 0 ]; then
    local frames
    frames=$(events 'select(.kind == "run.summary") | .frames.good')
    [ "$frames" = "$1" ] || fail "frames $frames are good, not $1"
  fi
}

# Nothing was started, and the first words of the errors match.
nothing_started() { # PATTERN
  [ "$status" -eq 2 ] || fail "a refused run ends with exit code $status"
  # shellcheck disable=SC2053  # a pattern
  [[ $(head -n 1 "$tree/.errors") == "trovik: error: "$1 ]] || fail "the words are \"$(head -n 1 "$tree/.errors")\", not \"$1\""
}

bad() { # RULE PATTERN
  [ "$status" -eq 1 ] || fail "a bad run ends with exit code $status"
  local count=0 rule reason
  while IFS=$'\t' read -r rule reason; do
    count=$((count + 1))
    [ "$rule" = "$1" ] || fail "the rule \"$rule\" decided, not \"$1\": $reason"
    # shellcheck disable=SC2053  # a pattern
    [[ $reason == $2 ]] || fail "the reason is \"$reason\", not \"$2\""
  done < <(events 'select(.kind == "work.failed") | [.rule, .reason] | join("\t")')
  [ "$count" -gt 0 ] || fail "no work failed"
}

failures_are() { # FRAMES...
  local found
  found=$(events 'select(.kind == "work.failed") | .frames' | sort -V | paste -sd ' ')
  [ "$found" = "$*" ] || fail "frames $found failed, not $*"
}

images_are() { # FILE...
  local found wanted
  found=$("$trovik" images last --json | jq -r '.files[].file' | sort)
  wanted=$(printf '%s\n' "$@" | sort)
  [ "$found" = "$wanted" ] || fail "the images are $(paste -sd ' ' <<<"$found"), not $(paste -sd ' ' <<<"$wanted")"
}

folder_has() { # FOLDER FILE...
  local folder=$1 found wanted
  shift
  found=$(cd "$folder" && find . -type f | sed 's|^\./||' | sort)
  wanted=$(printf '%s\n' "$@" | sort)
  [ "$found" = "$wanted" ] || fail "$folder holds $(paste -sd ' ' <<<"$found"), not $(paste -sd ' ' <<<"$wanted")"
}

png_is() { # FILE WIDTH HEIGHT
  local bytes
  bytes=$(od -An -tx1 -j 16 -N 8 -- "$1" | tr -d ' \n')
  [ "$bytes" = "$(printf '%08x%08x' "$2" "$3")" ] || fail "$1 is not $2 x $3 (hexadecimal $bytes)"
}

# By name and not through a pipe: grep ends at the first hit, and what writes
# into the pipe would then fail.
in_logs() { grep -qa "$@" "$XDG_STATE_HOME"/trovik/logs/*/*.log; }
said() { in_logs -F -e "$1" || fail "the program never said \"$1\""; }
never_said() { ! in_logs -F -e "$1" || fail "the program said \"$1\""; }
log_line() { in_logs -E -e "$1" || fail "no line of the program matches $1"; }

mount_at() { # FOLDER OPTIONS
  [ -n "${TROVIK_OWN_FILE_SYSTEMS:-}" ] || fail "a case has to call read_only and full itself: see lib.sh"
  mkdir -p "$1"
  mount -t tmpfs -o "$2" none "$1"
  mounted+=("$PWD/$1")
}

read_only() { # FOLDER
  mount_at "$1" ro
}

full() { # FOLDER [BYTES]
  mount_at "$1" size=256k
  dd if=/dev/zero of="$1/.filler" bs=4k 2>/dev/null && fail "the disk does not fill up"
  if [ "${2:-0}" -gt 0 ]; then
    truncate -s "-$2" "$1/.filler"
  fi
}
