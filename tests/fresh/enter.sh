#!/usr/bin/env bash
# Process 1 of a case's own namespaces: makes the root from the base, mounts
# what a system has, and runs the case there. run.sh starts it, with all that
# it needs in the environment. What is mounted is seen here alone, and the
# kernel ends everything that runs here when this process ends.
set -euo pipefail
[ -d "/proc/$FRESH_RUN" ] # killed before we were bound to it

fail() {
  printf 'enter.sh: %s\n' "$*" >&2
  exit 1
}

case=$FRESH_CASE
root=$FRESH_WORK/$case
start=$SECONDS
mkdir "$root"
if ! said=$(tar --directory="$root" --numeric-owner --xattrs --extract --zstd --file="$FRESH_BASE" 2>&1); then
  # Room for these words, if that is what was lacking.
  rm -rf --one-file-system "$root"
  tail -n 3 <<<"$said"
  fail "could not unpack the base system; set TMPDIR to a folder with room:
$(df -h --output=target,avail "$FRESH_WORK" | tail -n 1)"
fi

# An ordinary container's file systems.
mount -t proc proc /proc
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount -t tmpfs -o mode=755,size=1m dev "$root/dev"
for device in null zero full random urandom tty; do
  : >"$root/dev/$device"
  mount --bind "/dev/$device" "$root/dev/$device"
done
mkdir "$root/dev/pts" "$root/dev/shm"
mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts "$root/dev/pts"
mount -t tmpfs -o mode=1777 shm "$root/dev/shm"
ln -s pts/ptmx "$root/dev/ptmx"
ln -s /proc/self/fd "$root/dev/fd"
ln -s /proc/self/fd/0 "$root/dev/stdin"
ln -s /proc/self/fd/1 "$root/dev/stdout"
ln -s /proc/self/fd/2 "$root/dev/stderr"

# This machine's network.
hostname fresh
echo fresh >"$root/etc/hostname"
{
  printf '127.0.0.1 localhost\n127.0.1.1 fresh\n'
  grep -vE '^[[:space:]]*(127\.|::1|#|$)' /etc/hosts || true
} >"$root/etc/hosts"
rm -f "$root/etc/resolv.conf"
[ ! -e /etc/resolv.conf ] || cp -L /etc/resolv.conf "$root/etc/resolv.conf"
# Nothing here has to survive a loss of power. Container images do it as well.
echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"
[ ! -s "$FRESH_WORK/sources.list" ] || cp "$FRESH_WORK/sources.list" "$root/etc/apt/sources.list"
[ ! -s "$FRESH_WORK/apt.conf" ] || cp "$FRESH_WORK/apt.conf" "$root/etc/apt/apt.conf.d/90machine"

# The cases, the commit, and what one case leaves for another.
give() { # FOLDER NAME [OPTION]
  mkdir "$root/srv/$2"
  mount --bind "$1" "$root/srv/$2"
  [ $# -eq 2 ] || mount -o "remount,bind,$3" "$root/srv/$2"
}
give "$FRESH_HERE" fresh ro
cp -r "$FRESH_WORK/source.git" "$root/srv/trovik.git"
give "$FRESH_WORK/handed" handed
environment=()
if [ -n "$FRESH_CCACHE" ]; then
  give "$FRESH_CCACHE" ccache-objects
  environment=(CCACHE_DIR=/srv/ccache-objects)
fi

# Packages that were downloaded before. apt takes what lies there by its size
# alone, so each is kept under its own sum.
archives=$root/var/cache/apt/archives
if [ -n "$FRESH_DEBS" ]; then
  while read -r sum file; do
    if [[ $(basename "$file") = "$sum"_* ]]; then
      cp "$file" "$archives/${file##*/"${sum}"_}"
    else
      printf 'Removing %s: it is damaged\n' "$file"
      rm -f "$file"
    fi
  done < <(find "$FRESH_DEBS" -name '*.deb' -exec sha256sum {} +)
fi
keep_packages() {
  local file name sum new
  [ -n "$FRESH_DEBS" ] || return 0
  for file in "$archives"/*.deb; do
    [ -f "$file" ] || continue
    name=$(basename "$file")
    compgen -G "$FRESH_DEBS/*_$name" >/dev/null && continue
    sum=$(sha256sum "$file")
    new=$(mktemp "$FRESH_DEBS/.new.XXXXXX")
    cp "$file" "$new" && chmod 644 "$new" && mv "$new" "$FRESH_DEBS/${sum%% *}_$name"
  done
}
printf '== %s: a bare root, %s s\n' "$case" "$((SECONDS - start))"

# The rights of root in an ordinary container, and a login's environment. In a
# chroot the kernel makes no user namespaces either.
rights=+chown,+dac_override,+fowner,+fsetid,+kill,+setgid,+setuid,+setpcap,+net_bind_service,+net_raw,+sys_chroot,+mknod,+audit_write,+setfcap
status=0
env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb "${environment[@]}" \
  setpriv --bounding-set="-all,$rights" --inh-caps=-all \
  chroot "$root" /bin/bash "/srv/fresh/cases/$case.sh" || status=$?
keep_packages
printf '== %s: %s s in all\n' "$case" "$SECONDS"
exit "$status"
