#!/usr/bin/env bash
# Shows that check-layers.sh passes what it should, and finds every kind of
# breach at its place.
#
#   self-test.sh CHECK-LAYERS
set -euo pipefail

check=$1
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

plant() { # FILE: its text on standard input
  mkdir -p "$tree/$(dirname "$1")"
  cat >"$tree/$1"
}

good_tree() {
  rm -rf "${tree:?}"/*
  plant host/Foundation.h <<<'#include "host/foundation/String.h"'
  plant host/Application.h <<<'#include "host/application/jobs/ProcessJob.h"'
  plant host/foundation/String.h <<<'#include <string>'
  plant host/application/Job.h <<<'#include "host/foundation/String.h"'
  plant host/application/jobs/ProcessJob.h <<<'#include "host/application/Job.h"'
  plant job/TessivarJob.h <<<'#include "host/application/jobs/ProcessJob.h"'
  plant module/Tessivar.cpp <<<'#include "job/TessivarJob.h"'
  printf '%s\n' '#include "trovik/text/Text.h"' '#include <sqlite3.h>' '#include "host/Application.h"' | plant trovik/queue/Queue.cpp
  plant trovik/text/Text.h </dev/null
  plant trovik/verbs/Queue.h <<<'#include "trovik/queue/Queue.h"'
  plant trovik/main.cpp <<<'#include "trovik/verbs/Queue.h"'
  printf '%s\n' '#include "trovik/text/Text.h"' '#include <OpenImageIO/imageio.h>' | plant trovik/imagetool/Decoder.cpp
}

expect() { # WHAT EXIT-CODE OUTPUT
  local output status=0
  output=$("$check" "$tree") || status=$?
  if [ "$status" -ne "$2" ] || [ "$output" != "$3" ]; then
    printf 'FAILED: %s\n  expected %s: %s\n  got      %s: %s\n' "$1" "$2" "$3" "$status" "$output"
    failures=$((failures + 1))
  fi
}

# A second line so that the place is seen to be right.
breach() { # FILE INCLUDE-LINE MESSAGE
  good_tree
  printf '// a file\n%s\n' "$2" | plant "$1"
  expect "$2 in $1" 1 "$1:2: $3"
}

good_tree
expect "a tree that keeps the rules" 0 ""

good_tree
plant host/foundation/String.cpp <<<'#include <string>'
expect "a header that is never seen alone" 1 \
  'host/foundation/String.cpp:1: includes string before its own header, which then is never seen alone'
good_tree
printf '%s\n' '#include "host/foundation/String.h"' '#include <map>' | plant host/foundation/String.cpp
expect "a source that begins with its own header" 0 ""

breach host/foundation/Path.h '#include "host/application/Job.h"' 'host/foundation includes host/application/Job.h'
breach host/foundation/Path.h '#include "host/Application.h"' 'host/foundation includes host/Application.h'
breach host/foundation/Path.h '#include "module/Tessivar.h"' 'host/foundation includes module/Tessivar.h'
breach host/application/Core.cpp '#include "host/application/jobs/ProcessJob.h"' \
  'host/application includes host/application/jobs/ProcessJob.h'
breach host/application/Core.cpp '#include "module/Tessivar.h"' 'host/application includes module/Tessivar.h'
breach host/application/Core.cpp '#include "job/TessivarJob.h"' 'host/application includes job/TessivarJob.h'
breach host/application/Core.cpp '  #  include <trovik/verbs/Queue.h>' 'host/application includes trovik/verbs/Queue.h'
breach job/Other.cpp '#include "module/Tessivar.h"' 'job includes module/Tessivar.h'
breach job/Other.cpp '#include "trovik/verbs/Queue.h"' 'job includes trovik/verbs/Queue.h'
breach module/Other.cpp '#include "trovik/verbs/Queue.h"' 'module includes trovik/verbs/Queue.h'
breach trovik/main.cpp '#include "module/Tessivar.h"' 'trovik includes module/Tessivar.h'
breach trovik/main.cpp '#include "job/TessivarJob.h"' 'trovik includes job/TessivarJob.h'
breach host/application/Core.cpp '#include <sqlite3.h>' '<sqlite3.h> belongs inside trovik/queue/'
breach trovik/main.cpp '#include <sqlite3.h>' '<sqlite3.h> belongs inside trovik/queue/'
breach job/Other.cpp '#include <slurm/slurm.h>' '<slurm/slurm.h> belongs inside trovik/'
breach module/Other.cpp '#include <png.h>' '<png.h> belongs inside trovik/imagetool/'
breach trovik/verbs/Run.cpp '#include <OpenImageIO/imageio.h>' '<OpenImageIO/imageio.h> belongs inside trovik/imagetool/'
breach trovik/verbs/Run.cpp '#include <ft2build.h>' '<ft2build.h> belongs inside trovik/imagetool/'
breach trovik/verbs/Run.cpp '#include "trovik/imagetool/Decoder.h"' 'trovik/verbs includes trovik/imagetool/Decoder.h'
breach trovik/imagetool/Check.cpp '#include "host/application/Job.h"' \
  'trovik/imagetool includes host/application/Job.h'
breach host/foundation/Tty.cpp '#include <termios.h>' '<termios.h> belongs inside trovik/'
breach host/application/Core.cpp '#include "Job.h"' \
  'includes "Job.h" by a path that does not begin at the root'
breach host/Stray.h '#include <string>' 'belongs to no layer'
breach trovik/Stray.h '#include <string>' 'belongs to no layer'
breach trovik/garage/Car.h '#include <string>' 'belongs to no layer'
breach trovik/queue/garage/Car.h '#include <string>' 'belongs to no layer'
breach trovik/text/Other.cpp '#include "trovik/machine/Machine.h"' 'trovik/text includes trovik/machine/Machine.h'
breach trovik/works/Other.cpp '#include "trovik/verbs/Queue.h"' 'trovik/works includes trovik/verbs/Queue.h'
breach trovik/check/Other.cpp '#include "trovik/queue/Queue.h"' 'trovik/check includes trovik/queue/Queue.h'
breach trovik/imagetool/Other.cpp '#include "trovik/queue/Queue.h"' 'trovik/imagetool includes trovik/queue/Queue.h'

# A circle of three by way of their sources, with a way into it and one out.
good_tree
plant trovik/verbs/Away.cpp <<<'#include "trovik/verbs/A.h"'
plant trovik/verbs/A.h <<<'#include "trovik/verbs/B.h"'
plant trovik/verbs/B.h <<<'#include "trovik/verbs/Queue.h"'
plant trovik/verbs/B.cpp <<<'#include "trovik/verbs/B.h"
#include "trovik/verbs/C.h"'
plant trovik/verbs/C.h <<<'#include "trovik/verbs/A.h"'
expect "a circle" 1 \
  'trovik/verbs/A -> trovik/verbs/B -> trovik/verbs/C -> trovik/verbs/A: a circle of includes'

rm -rf "${tree:?}"/*
expect "an empty tree" 1 "$tree: no sources below host, module, job and trovik"

[ "$failures" -eq 0 ] || exit 1
echo "the check passes the good tree and finds every breach"
