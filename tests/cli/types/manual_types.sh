# The manual page of type files is sound, and tells every name that the
# reference tells.
. "$(dirname "$0")/../lib.sh"
docs=$(dirname "$0")/../../../docs
mandoc -T lint -W warning "$docs/man/tvx.5" >"$TMP/lint" || { cat "$TMP/lint" >&2; fail "mandoc complains"; }
mandoc -T ascii "$docs/man/tvx.5" | col -b | tr -s ' \t' '\n\n' | tr -d '\140\047' |
  sed -e 's/[,;.:]*$//' -e 's/\([a-z]\)(.*/\1/' >"$TMP/page"

# What stands as code in the first columns of the reference's tables, and the
# sections that its headings and texts name; without arguments and dots.
{
  sed -n 's/^| \(`[^|]*\) |.*/\1/p' "$docs/tvx.md" | grep -o '`[^`]*`' | tr -d '`' | sed 's/(.*//' | grep -v '^\$'
  grep -o '`\[[A-Z][A-Za-z]*\]`' "$docs/tvx.md" | tr -d '`' | grep -v -x -e '\[PathMaps\]' -e '\[Logs\]'
} | sort -u >"$TMP/names"
[ "$(wc -l <"$TMP/names")" -ge 100 ] || fail "the reference has lost names"
while read -r name; do
  grep -q -x -F -e "$name" "$TMP/page" || echo "$name"
done <"$TMP/names" >"$TMP/missing"
[ ! -s "$TMP/missing" ] || { cat "$TMP/missing" >&2; fail "the manual page does not tell these"; }
