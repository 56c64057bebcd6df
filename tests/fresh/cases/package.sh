#!/usr/bin/env bash
# The packages on a bare machine: installed, used by somebody else than who
# installed them, built against, upgraded and purged.
# shellcheck source=tests/fresh/case.sh
source /srv/fresh/case.sh

expect_bare
useradd --create-home --shell /bin/bash bob
mkdir /root/packages
cp /srv/handed/*.deb /root/packages/
cd /root/packages || exit
version=$(dpkg-deb --field trovik_*_amd64.deb Version)
for name in trovik trovik-dev trovik-dbgsym; do
  [ -f "${name}_${version}_amd64.deb" ] || fail "there is no ${name}_${version}_amd64.deb"
done

# By hand, as an administrator does: with what the package recommends, which
# is apt's own default and must be there to be installed as well.
# What it says is long; the lines about ours are shown, or all when it fails.
apt() { # WORDS
  as root /root/packages "DEBIAN_FRONTEND=noninteractive apt -y $1" >/tmp/apt.log 2>&1 || {
    cat /tmp/apt.log
    return 1
  }
  grep -E 'trovik|newly installed' /tmp/apt.log || true
}

# Every file but those of users, and what apt, dpkg and logs keep for themselves.
files() {
  find / -xdev \( -path /home -o -path /root/packages -o -path /srv -o -path /tmp -o -path /var/lib/dpkg -o -path /var/lib/apt \
    -o -path /var/cache/apt -o -path /var/cache/debconf -o -path /var/log \) -prune -o -print | LC_ALL=C sort
}

step "apt update" as root / "apt-get update -qq"
files >/tmp/before
step "apt install ./trovik" apt "install ./trovik_${version}_amd64.deb"
step "trovik types, as another user" as bob /home/bob "trovik --version && trovik types"
expect_said "POV-Ray"
step "apt purge --autoremove trovik" apt "purge --autoremove trovik"
files >/tmp/after
step "the files are as before" diff /tmp/before /tmp/after

step "apt install ./trovik povray povray-includes" apt "install ./trovik_${version}_amd64.deb povray povray-includes"
# shellcheck disable=SC2088  # the other shell's home
run="trovik run povray /usr/share/trovik/demo/scene_0012.pov --range 1-4 --out ~/out"
step "$run" as bob /home/bob "$run"
expect_said "all 4 frames good"
expect_images bob /home/bob trovik out 4

step "apt install man-db vim" apt "install man-db vim"
step "man trovik" as bob /home/bob "man --where trovik tvx && man trovik | head -n 12"
expect_said "trovik.1"
expect_said "tvx.5"
step "completion in bash" as bob /home/bob ". /usr/share/bash-completion/completions/trovik && complete -p trovik"
step "completion in zsh and fish" ls /usr/share/zsh/vendor-completions/_trovik /usr/share/fish/vendor_completions.d/trovik.fish
# vim writes to the terminal what it has to say, and there is none.
step "vim knows the types' files" as bob /home/bob \
  "touch x.tvx && vim --not-a-term -T xterm -c 'redir! >vim.txt' -c 'set filetype? syntax?' -c 'qall!' x.tvx >/dev/null 2>&1; cat vim.txt; echo"
expect_said "filetype=tvx"
expect_said "syntax=tvx"

# A module of one's own, with what docs/install.md says and nothing else.
step "git clone" clone bob /home/bob/trovik
needed=$(sed -n 's/^apt install \.\/.*trovik-dev_[^ ]* //p' /home/bob/trovik/docs/install.md | head -n 1)
[ -n "$needed" ] || fail "docs/install.md has no line \"apt install ./trovik_... ./trovik-dev_... PACKAGE...\""
step "apt install ./trovik-dev $needed" apt "install ./trovik-dev_${version}_amd64.deb ./trovik-dbgsym_${version}_amd64.deb $needed"
step "a module is built" as bob /home/bob "cmake -S trovik/tests/install/consumer -B consumer && cmake --build consumer"
step "and runs" as bob /home/bob \
  "TROVIK_MODULE_PATH=\$PWD/consumer:\$(sed -n 2p consumer/package.txt) trovik run Echo --range 1-3"
expect_said "all 3 frames good"

# The queue outlives what is done to the program.
jobs() { as bob /home/bob "trovik jobs --json"; }
jobs >/tmp/jobs
queue_is_kept() {
  step "the queue is kept" jobs
  diff /tmp/jobs "$said" || fail "the queue is not as it was"
  step "$run --missing" as bob /home/bob "$run --missing"
  expect_said "nothing is missing"
}
debs() { # VERSION
  printf './%s ' "trovik_$1_amd64.deb" "trovik-dev_$1_amd64.deb" "trovik-dbgsym_$1_amd64.deb"
}
step "apt install --reinstall" apt "install --reinstall $(debs "$version")"
queue_is_kept

newer=$version+newer
repack() { # NAME
  dpkg-deb --raw-extract "$1_${version}_amd64.deb" "/tmp/$1"
  sed -i "/^Version:/s/$version/$newer/; /^Depends:/s/(= $version)/(= $newer)/" "/tmp/$1/DEBIAN/control"
  dpkg-deb --root-owner-group --build "/tmp/$1" "$1_${newer}_amd64.deb"
}
for name in trovik trovik-dev trovik-dbgsym; do
  step "$name $newer" repack "$name"
done
step "apt install, the newer version" apt "install $(debs "$newer")"
[ "$(dpkg-query --show --showformat '${Version}' trovik)" = "$newer" ] || fail "the newer version is not installed"
queue_is_kept

step "apt purge" apt "purge trovik trovik-dev trovik-dbgsym"
left=$(files | grep -iE 'trovik|tessivar|tvx' || true)
[ -z "$left" ] || fail "apt purge has left: $left"
! dpkg-query --show 'trovik*' 2>/dev/null | grep -q . || fail "dpkg still knows the packages"
step "what the user has stays" as bob /home/bob "ls out .local/state/trovik"
