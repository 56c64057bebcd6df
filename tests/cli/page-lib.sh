# Shared by the tests of the page, which ask it by curl.
#
#   start_page OPTION...   starts it with a site of the test's own: $address, $url,
#                          $port, $jar (its cookie)
#   stop_page              ends it as Ctrl-C does; it must end in peace
#   status CODE CURL-ARGUMENT...   asks, and demands the status; the answer is in
#                          $TMP/head and $TMP/body
#   tells PATH POINTER... <<E      demands these values of the JSON
#   post PATH BODY         steers; the answer is in $TMP/body

mkdir -p "$TMP/site"
printf '<!doctype html>\n<title>trovik</title>\n<script src="/assets/page.js" type="module"></script>\n' \
  >"$TMP/site/index.html"
echo 'export const page = 1;' >"$TMP/site/page.js"
echo 'hidden' >"$TMP/site/hidden.txt"
TROVIK_PAGE=$TMP/site
export TROVIK_PAGE
# The cluster of a test's own, or whatever proxy there is, is of no use here.
unset http_proxy https_proxy all_proxy
jar=$TMP/jar

start_page() {
  : >"$TMP/page.out"
  "$HELPER" signals "$TROVIK" page "$@" >"$TMP/page.out" 2>"$TMP/page.err" &
  pid=$!
  wait_for "$TMP/page.out" token=
  address=$(cat "$TMP/page.out")
  url=${address%%/\?*}
  port=${url##*:}
  cookie_name=trovik-$port
  curl -s -o /dev/null -c "$jar" "$address" || fail "the page does not answer"
}

stop_page() {
  kill -INT "$pid"
  code=0
  wait "$pid" || code=$?
  pid=
  [ "$code" = 0 ] || { cat "$TMP/page.err" >&2; fail "the page ended with $code"; }
}

status() {
  wanted=$1
  shift
  : >"$TMP/body"
  got=$(curl -s --max-time 60 -o "$TMP/body" -D "$TMP/head" -w '%{http_code}' "$@" || :)
  [ "$got" = "$wanted" ] || { cat "$TMP/body" >&2; fail "$*: $got, not $wanted"; }
}

tells() {
  path=$1
  shift
  status 200 -b "$jar" "$url$path"
  "$HELPER" json "$@" <"$TMP/body" >"$TMP/told"
  file_is "$TMP/told"
}

post() {
  status 200 -b "$jar" -H 'Content-Type: application/json' -d "$2" "$url$1"
}
