# The page tells the queue to who has its address, and to nobody else.
. "$(dirname "$0")/../lib.sh"
. "$(dirname "$0")/../page-lib.sh"
sketch_type
scenes 3
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1 --set Retries=0
start_page

# Without the token, by another name, for another page.
status 403 "$url/"
status 403 "$url/api/jobs"
status 403 "$url/assets/page.js"
status 403 "$url/?token=nothing"
status 403 -H "Cookie: $cookie_name=nothing" "$url/api/jobs"
status 403 -b "$jar" -H "Host: evil.example:$port" "$url/api/jobs"
status 403 -H 'Host: evil.example' "$address"
status 403 -b "$jar" -H 'Origin: http://evil.example' "$url/api/jobs"
status 403 -b "$jar" -H "Origin: http://127.0.0.1:1" "$url/api/jobs"
status 403 -b "$jar" -H 'Sec-Fetch-Site: same-site' "$url/api/jobs"
status 403 -X POST -H 'Content-Type: application/json' -d '{}' "$url/api/jobs/1/retry"
grep -q 'page.problem' "$TMP/body" || fail "a refusal is no JSON"

# With it: all is there, and each answer says what a browser may do with it.
status 200 -b "$jar" "$url/"
cmp -s "$TMP/body" "$TMP/site/index.html" || fail "that is not the page"
for header in 'Content-Security-Policy: default-src .none.; script-src .self.' 'X-Content-Type-Options: nosniff' \
  'Referrer-Policy: no-referrer' 'Cross-Origin-Resource-Policy: same-origin' 'Cross-Origin-Opener-Policy: same-origin'; do
  grep -q "^$header" "$TMP/head" || { cat "$TMP/head" >&2; fail "there is no $header"; }
done
status 200 -b "$jar" "$url/assets/page.js"
grep -q '^Content-Type: text/javascript' "$TMP/head" || fail "a script is no script"
curl -s -o "$TMP/body" -D "$TMP/head" "$address"
grep -q '^HTTP/1.1 303' "$TMP/head" || fail "the address leads nowhere"
grep -q "^Set-Cookie: $cookie_name=[0-9a-f]\{64\}; HttpOnly; SameSite=Strict; Path=/" "$TMP/head" || fail "no such cookie"
[ "$(stat -c %a "$XDG_STATE_HOME/trovik/page-token")" = 600 ] || fail "others may read the token"

# No file but those that it lists.
echo mine >"$TMP/secret.js"
for path in /assets/../secret.js /assets/..%2fsecret.js /assets/%2e%2e/secret.js /../secret.js /assets/ /page.js \
  /assets/.hidden.js '/assets/page.js%00' //etc/passwd /api/files/..%2f..%2fetc%2fpasswd/original /api/files/0/original \
  /api/files/-1/picture?w=160 /api/files/99/original /api/files/99/picture?w=160 /api/attempts/99/log /api/jobs/99 \
  /api/jobs/99/cells /api/jobs/1/frames/4 /api/jobs/1/frames/work /api/jobs/1x /api/nothing; do
  status 404 -b "$jar" --path-as-is "$url$path"
done
status 400 -b "$jar" "$url/api/attempts/1/log?from=x"
status 400 -b "$jar" "$url/api/files/1/picture"

# What is told is documented.
for path in about jobs jobs/1 jobs/1/cells jobs/1/frames/2 attempts/2/log machine; do
  status 200 -b "$jar" "$url/api/$path"
  "$HELPER" documented "$FORMATS" <"$TMP/body" || fail "docs/formats.md lacks what /api/$path tells"
done
status 404 -b "$jar" "$url/api/jobs/9"
"$HELPER" documented "$FORMATS" <"$TMP/body" || fail "docs/formats.md lacks what a problem tells"
tells /api/jobs /jobs/0/state /jobs/0/strip /jobs/0/counts/failed <<'END'
"failed" "gfg" 1
END
tells /api/jobs/1/cells /frames /states <<'END'
[1,2,3] "gfg"
END
tells /api/jobs/1/frames/2 /state /attempts/0/deciding /attempts/0/running <<END
"failed" "fatal: $PWD/shot_0002.txt is broken" false
END
tells '/api/attempts/2/log?from=-10' /text /from /next /size <<END
"giving up\n" $(($(wc -c <"$XDG_STATE_HOME/trovik/logs/1/2-2.log") - 10)) $(wc -c <"$XDG_STATE_HOME/trovik/logs/1/2-2.log") $(wc -c <"$XDG_STATE_HOME/trovik/logs/1/2-2.log")
END

# A file is sent as it is; a link in its place is not, nor a pipe.
file=$(curl -s -b "$jar" "$url/api/jobs/1/cells" | "$HELPER" json /files/0)
status 200 -b "$jar" "$url/api/files/$file/original"
cmp -s "$TMP/body" images/shot_0001.drw || fail "the file is another one"
grep -q "^Content-Disposition: attachment; filename\*=UTF-8''shot_0001.drw" "$TMP/head" || fail "it is no download"
status 415 -b "$jar" "$url/api/files/$file/picture?w=160"
mv images/shot_0001.drw elsewhere
ln -s "$PWD/elsewhere" images/shot_0001.drw
status 404 -b "$jar" "$url/api/files/$file/original"
status 404 -b "$jar" "$url/api/files/$file/picture?w=160"
rm images/shot_0001.drw
mkfifo images/shot_0001.drw
status 404 -b "$jar" "$url/api/files/$file/original"
rm images/shot_0001.drw

# Whoever tries something else is refused, and all goes on.
status 200 -b "$jar" -I "$url/api/jobs"
[ ! -s "$TMP/body" ] || ! grep -q jobs "$TMP/body" || fail "HEAD has a body"
for method in PUT DELETE OPTIONS TRACE PATCH; do
  status 405 -b "$jar" -X "$method" "$url/api/jobs"
done
status 405 -b "$jar" "$url/api/jobs/1/retry"
status 405 -b "$jar" -X POST -H 'Content-Type: application/json' -d '{}' "$url/api/jobs"
status 415 -b "$jar" -X POST -d '{}' "$url/api/jobs/1/retry"
head -c 70000 /dev/zero | tr '\0' ' ' >"$TMP/long"
status 413 -b "$jar" -H 'Content-Type: application/json' -H 'Expect:' --data-binary "@$TMP/long" "$url/api/jobs/1/retry"
long=$(head -c 40000 /dev/zero | tr '\0' x)
status 431 -b "$jar" -H "X-Long: $long" "$url/api/jobs"
curl -s -o "$TMP/body" -w '%{http_code}' -b "$jar" "$url/api/$long" >"$TMP/status" || :
grep -q '^4' "$TMP/status" || fail "a long address is answered with $(cat "$TMP/status")"
status 200 -b "$jar" "$url/api/about"

# A second page takes the next port; one that must have this one is refused.
run 2 page --port "$port"
err_is <<END
trovik: error: cannot listen at 127.0.0.1:$port: another program does
hint: leave --port out for the next one that is free
END
run 2 page --listen here
err_is <<'END'
trovik: error: --listen: "here" is no address
hint: write one in numbers, such as 192.168.1.20, or 0.0.0.0 for all of this machine
END
run 2 page --state "$TMP/none"

# A browser is opened where there is something to open it with.
mkdir "$TMP/bin"
printf '#!/bin/sh\nprintf "%%s\\n" "$*" >"%s"\n' "$TMP/opened" >"$TMP/bin/xdg-open"
chmod +x "$TMP/bin/xdg-open"
stop_page
path=$PATH
PATH=$TMP/bin:$PATH
start_page --open
wait_for "$TMP/opened" "$address"
stop_page
PATH=$path
rm "$TMP/bin/xdg-open"
for tool in cat curl kill sed grep sleep; do ln -s "$(command -v "$tool")" "$TMP/bin/$tool"; done
PATH=$TMP/bin
start_page --open
PATH=$path
wait_for "$TMP/page.err" 'there is no program "xdg-open" along PATH'

# Who lets other machines in is told what that means.
stop_page
start_page --listen 0.0.0.0
wait_for "$TMP/page.err" 'in clear text'
status 403 -H "Host: evil.example:$port" -b "$jar" "$url/api/jobs"
status 200 -b "$jar" "$url/api/jobs"
stop_page
start_page

# The token stays from one start to the next; Ctrl-C ends it in peace.
before=$(cat "$XDG_STATE_HOME/trovik/page-token")
stop_page
start_page
[ "$(cat "$XDG_STATE_HOME/trovik/page-token")" = "$before" ] || fail "the token is another one"
stop_page

