#!/usr/bin/env bash
# That the root is bare, and yet a system that can install something.
# shellcheck source=tests/fresh/case.sh
source /srv/fresh/case.sh

expect_bare
step "clone" clone root /root/trovik
step "apt-get install jq" install jq
step "jq --version" jq --version
