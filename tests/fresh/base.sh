# shellcheck shell=bash
# What run.sh makes before the first root: the base system, the configuration
# of apt, the caches. Sourced by it.
# shellcheck disable=SC2154  # its variables

# Where things are kept between runs; nowhere, if nothing can be written.
find_cache() {
  local folder=${XDG_CACHE_HOME:-${HOME:+$HOME/.cache}}
  cache=''
  debs=''
  if [ -n "$folder" ] && mkdir -p "$folder/trovik-tests/fresh/debs" 2>/dev/null &&
    [ -w "$folder/trovik-tests/fresh/debs" ]; then
    cache=$folder/trovik-tests/fresh
    debs=$cache/debs
    # Versions that no mirror has any more.
    find "$debs" -type f -mtime +30 -delete
  else
    say "No cache: cannot write below \"${folder:-~/.cache}\""
  fi
}

# Packages come from where this machine gets its own, by the same proxy, if it
# is a Debian of this release; else from debootstrap's default mirror.
write_apt_configuration() {
  local uri release component origin variable
  : >"$work/sources.list"
  : >"$work/apt.conf"
  mirror=
  command -v apt-get >/dev/null || return 0

  # shellcheck disable=SC2016  # apt's own fields
  apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' 'Created-By: Packages' >"$work/targets"
  while read -r uri release component origin; do
    # Without an origin the lists were not fetched yet.
    case "$uri $release $origin" in
    http*" $suite "* | http*" $suite-updates "* | http*" $suite-security "*) ;;
    *) continue ;;
    esac
    [[ $component = main && ${origin:-Debian} = Debian ]] || continue
    printf 'deb %s %s main\n' "$uri" "$release" >>"$work/sources.list"
    [ "$release" != "$suite" ] || mirror=$uri
  done <"$work/targets"
  [ -n "$mirror" ] || : >"$work/sources.list"

  apt-config dump | grep -E '^Acquire::(Check-Valid-Until|Check-Date|ForceIPv[46]|Retries|https?::(Proxy|Timeout)(::[^ ]+)?) "[^"]+";$' \
    >"$work/apt.conf" || true
  for variable in http_proxy https_proxy; do
    [ -z "${!variable:-}" ] || printf 'Acquire::%s::Proxy "%s";\n' "${variable%_proxy}" "${!variable}" >>"$work/apt.conf"
  done
  # What was downloaded goes into the cache.
  [ -z "$debs" ] || printf 'Binary::apt::APT::Keep-Downloaded-Packages "true";\n' >>"$work/apt.conf"
}

# The base system as a packed file, which knows when it is cut short. It is
# made anew after a week, for the security updates.
get_base() {
  local name=$suite-$architecture-minbase-$include.tar.zst start=$SECONDS making_lock
  if [ -z "$cache" ]; then
    make_base "$work/$name"
    base=$work/$name
  else
    base=$cache/$name
    exec {making_lock}>"$cache/lock"
    flock --nonblock "$making_lock" || {
      say "Base: waiting for another run that makes it"
      flock "$making_lock"
    }
    rm -f "$base".new.*
    if [ -z "$(find "$cache" -name "$name" -mtime -7)" ]; then
      make_base "$base"
    elif ! tied zstd --test --quiet "$base" 2>/dev/null; then
      say "Base: $base is broken"
      make_base "$base"
    fi
    exec {making_lock}>&-
  fi
  say "Base: $(basename "$base"), $((SECONDS - start)) s"
}

make_base() { # FILE
  say "Base: debootstrap --variant=minbase --include=$include $suite $mirror"
  mkdir "$work/base"
  FRESH_RUN=$$ setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child --propagation private \
    "$here/bootstrap.sh" "$architecture" "$include" "$suite" "$work/base" "$1.new.$$" "$mirror" \
    >"$work/base.log" 2>&1 </dev/null &
  making=$!
  if ! wait "$making"; then
    making=
    rm -f "$1.new.$$"
    tail -n 15 "$work/base.log" | sed 's/^/   | /' >&2
    fail "could not make the base system: is the network there, and room in $work?
$(df -h --output=target,avail "$work" | tail -n 1)"
  fi
  making=
  mv "$1.new.$$" "$1"
  remove "$work/base"
}
