#!/usr/bin/env bash
# As a user with sudo, below a folder of an ordinary name in another language:
# the demo, then the packages.
# shellcheck source=tests/fresh/case.sh
source /srv/fresh/case.sh

folder="/home/ada/my rënder farm/trovik"
expect_bare
step "apt-get install sudo" install sudo
useradd --create-home --shell /bin/bash ada
echo 'ada ALL=(ALL) NOPASSWD: ALL' >/etc/sudoers.d/ada

step "git clone" clone ada "$folder"
step "./demo.sh" as ada "$folder" ./demo.sh
expect_said "all 36 frames good"
expect_images ada "$folder" build/release/bin/trovik out/demo 36

step "scripts/package.sh" as ada "$folder" scripts/package.sh
cp "$folder"/build/packages/*.deb /srv/handed/
step "what was made" ls -l /srv/handed
