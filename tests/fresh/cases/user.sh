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
# With words for "trovik run", as the script says; the case root renders all.
step "./demo.sh --range 1-6 --slots 4" as ada "$folder" "./demo.sh --range 1-6 --slots 4"
expect_said "all 6 frames good"
expect_images ada "$folder" build/release/bin/trovik out/demo 6

step "scripts/package.sh" as ada "$folder" scripts/package.sh
cp "$folder"/build/packages/*.deb /srv/handed/
step "what was made" ls -l /srv/handed
