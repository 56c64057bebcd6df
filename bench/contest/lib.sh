# What bench/growth and bench/peers share: sourced by both, which set "me" before.
# shellcheck shell=bash

fail() {
  printf '%s: %s\n' "$me" "$*" >&2
  exit 2
}

# The value of an option that takes a number from 1 on.
number() { # OPTION VALUE
  [[ $2 =~ ^[1-9][0-9]{0,3}$ ]] || fail "$1 needs a number from 1 to 9999, not \"$2\""
}

# What is measured belongs to nobody: neither settings nor types of the user,
# and a queue of its own. All is in a folder that goes at the end.
prepare() { # PRESET
  scripts/build.sh "$1" trovik trovik-image Tessivar
  scripts/build.sh bench trovik_bench_contest trovik_bench_limits
  trovik=$PWD/build/$1/bin/trovik
  contest=$PWD/build/bench/bench/trovik_bench_contest
  limits=$PWD/build/bench/bench/trovik_bench_limits
  TMPDIR=$(mktemp -d)
  export TMPDIR
  trap clean EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  mkdir "$TMPDIR/types"
  cp bench/contest/*.tvx "$TMPDIR/types"
  "$contest" make-log-type "$TMPDIR/types/Log.tvx" "$TMPDIR/patterns"
  export TROVIK_STATE=$TMPDIR/state TROVIK_MODULE_PATH=$TMPDIR/types
  export TROVIK_SETTINGS=$TMPDIR/settings.ini TROVIK_OPTIONS=$TMPDIR/options.ini
  touch "$TROVIK_SETTINGS" "$TROVIK_OPTIONS"
  export LC_ALL=C
  programs=$TMPDIR/programs
}

running=
clean() {
  # With all that it has started.
  [ -z "$running" ] || kill -- "-$running" 2>/dev/null || true
  [ -z "$running" ] || wait "$running" 2>/dev/null || true
  rm -rf "$TMPDIR"
}

also() { # WORD...
  local IFS=$'\t'
  printf 'also\t%s\n' "$*" >>"$programs"
}
timed() { # GROUP NAME UNITS WORD...
  local IFS=$'\t'
  printf 'time\t%s\n' "$*" >>"$programs"
}

# Runs what was told by "also" and "timed". The table of it is in $TMPDIR/table,
# what each program has printed in $TMPDIR/printed.
run_rounds() { # ROUNDS
  rm -rf "$TMPDIR/printed"
  mkdir "$TMPDIR/printed"
  local status=0
  # In a group of its own, so that it can be ended with all that it runs.
  setsid "$contest" rounds "$1" "$programs" "$TMPDIR/printed" </dev/null >"$TMPDIR/table" 2>"$TMPDIR/said" &
  running=$!
  wait "$running" || status=$?
  running=
  rm "$programs"
  [ "$status" -eq 0 ] || {
    tail -n 20 "$TMPDIR/said" >&2
    fail "the measurement was given up; the reason is above"
  }
}

# Whether a program has printed a line that matches, and so did its work.
printed() { # GROUP NAME REGULAR-EXPRESSION
  grep -qE -- "$3" "$TMPDIR/printed/$1.$2" ||
    fail "$2 ($1) printed no line like \"$3\", but: $(head -c 500 "$TMPDIR/printed/$1.$2")"
}
