#!/usr/bin/env bash
# As root, by the README: the demo, then all tests.
# shellcheck source=tests/fresh/case.sh
source /srv/fresh/case.sh

folder=/root/trovik
expect_bare
step "git clone" clone root "$folder"
step "./demo.sh" as root "$folder" ./demo.sh
expect_said "all 36 frames good"
expect_images root "$folder" build/release/bin/trovik out/demo 36

# Nothing is built or rendered again.
touch /tmp/built
step "./demo.sh --missing" as root "$folder" "./demo.sh --missing"
expect_said "nothing is missing"
again=$(find "$folder/build/release" -newer /tmp/built \( -name '*.o' -o -name '*.a' -o -name '*.so*' -o -path '*/bin/*' \))
[ -z "$again" ] || fail "the second ./demo.sh has built again: $again"
again=$(find "$folder/out" -newer /tmp/built -type f)
[ -z "$again" ] || fail "the second ./demo.sh has rendered again: $again"

step "./check.sh --quick" as root "$folder" "./check.sh --quick"
