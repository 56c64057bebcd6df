#!/usr/bin/env bash
# Checks which part of the system includes which, from the #include lines of
# the sources below a directory. Prints a line for each breach; exit code 1 if
# there is one.
#
#   check-layers.sh ROOT
#
# module -> job -> host/application/jobs -> host/application -> host/foundation,
# and trovik -> host. The program meets the module only through its entry
# points, and the libraries for databases, clusters and terminals stay inside the
# program; that for databases inside trovik/queue. Those for images stay in its
# helper trovik/imagetool, which the program only starts. A source includes its
# own header first, so that each header is compiled with nothing before it.
#
# Inside trovik/ each room includes only rooms of its line below, and no files
# include each other in a circle, where a source, its header and the one of its
# private half (NameImpl.h) are taken as one.
set -euo pipefail

rooms='
text
machine      text
records      machine
queue        records machine text
images       machine text
jobs         records machine text
works        jobs images queue records machine text
progress     queue records machine text
engine       progress works jobs images queue records machine text
cluster      engine works jobs images queue records machine text
reports      cluster progress works jobs images queue records machine text
page         reports cluster progress works jobs images queue records machine text
check        jobs text
replay       reports works records text
newtype      text
commandline  text
verbs        newtype replay check page reports cluster engine progress works jobs images queue records machine text commandline
imagetool    images text
'

root=$1
cd "$root"

mapfile -t files < <(find host module job trovik \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | LC_ALL=C sort)
if [ ${#files[@]} -eq 0 ]; then
  echo "$root: no sources below host, module, job and trovik"
  exit 1
fi

awk -v rooms="$rooms" '
  function layer(path) {
    if (path ~ /^host\/foundation\// || path == "host/Foundation.h") return "host/foundation"
    if (path ~ /^host\/application\/jobs\// || path == "host/Application.h") return "host/application/jobs"
    if (path ~ /^host\/application\//) return "host/application"
    if (path ~ /^(job|module)\//) { sub(/\/.*/, "", path); return path }
    if (path ~ /^trovik\/main\./) return "trovik"
    if (path ~ /^trovik\/[^\/]+\/[^\/]+$/) {
      sub(/\/[^\/]+$/, "", path)
      return path in may ? path : ""
    }
    return ""
  }
  function unit(path) {
    sub(/(Impl)?\.(h|cpp)$/, "", path)
    return path
  }
  function breach(text) {
    printf "%s:%d: %s\n", FILENAME, FNR, text
    found = 1
  }
  BEGIN {
    for (i = 1; i < ARGC; i++) is_there[ARGV[i]] = 1
    may["host/foundation"] = "host/foundation"
    host = "host/application host/foundation"
    may["host/application"] = host
    host = "host/application/jobs " host
    may["host/application/jobs"] = host
    may["job"] = "job " host
    may["module"] = "module job " host
    may["trovik"] = "trovik " host
    rows = split(rooms, row, "\n")
    for (i = 1; i <= rows; i++) {
      words = split(row[i], word, " ")
      if (words == 0) continue
      room = "trovik/" word[1]
      helper = word[1] == "imagetool"
      if (!helper) may["trovik"] = may["trovik"] " " room
      may[room] = room " " (helper ? "host/foundation" : host)
      for (k = 2; k <= words; k++) may[room] = may[room] " trovik/" word[k]
    }
    database = "^(sqlite3|sqlite3ext)\\.h$"
    outside = "^(curses|ncurses|term|termios|termio)\\.h$|^sys/(termios|ttydefaults)\\.h$|^(slurm|ncursesw)/"
    images = "^(png|pngconf|libdeflate|jpeglib|turbojpeg|tiff|tiffio|ImathBox|gd|ft2build)\\.h$" \
      "|^(OpenEXR|Imath|OpenImageIO|webp|freetype2|freetype|libpng[0-9]*)/"
  }
  /^[ \t]*#[ \t]*include[ \t]*[<"]/ {
    line = $0
    sub(/^[ \t]*#[ \t]*include[ \t]*/, "", line)
    quoted = substr(line, 1, 1) == "\""
    line = substr(line, 2)
    sub(/[>"].*/, "", line)
    from = layer(FILENAME)
    to = layer(line)
    if (from == "") { breach("belongs to no layer"); next }
    if (to ~ /^trovik/ && unit(line) != unit(FILENAME)) needs[unit(FILENAME), ++needed[unit(FILENAME)]] = unit(line)
    own = FILENAME
    sub(/\.cpp$/, ".h", own)
    if (!(FILENAME in begun) && own != FILENAME && own in is_there && line != own)
      breach("includes " line " before its own header, which then is never seen alone")
    begun[FILENAME] = 1
    if (quoted && to == "") { breach("includes \"" line "\" by a path that does not begin at the root"); next }
    if (to != "" && index(" " may[from] " ", " " to " ") == 0) breach(from " includes " line)
    if (to == "" && from !~ /^trovik/ && line ~ outside) breach("<" line "> belongs inside trovik/")
    if (to == "" && from != "trovik/imagetool" && line ~ images) breach("<" line "> belongs inside trovik/imagetool/")
    if (line ~ database && FILENAME !~ /^trovik\/queue\//) breach("<" line "> belongs inside trovik/queue/")
  }
  # Takes away what needs nothing, or only what was taken away, until all is
  # gone; what stays leads into a circle.
  END {
    do {
      changed = 0
      for (u in needed) {
        open = 0
        for (k = 1; k <= needed[u]; k++) if (needs[u, k] in needed) open = needs[u, k]
        if (open) leads[u] = open
        else { delete needed[u]; changed = 1 }
      }
    } while (changed)
    least = ""
    for (u in needed) if (least == "" || u < least) least = u
    if (least != "") {
      for (u = least; !(u in seen); u = leads[u]) seen[u] = 1
      for (start = u; u != start || !began; u = leads[u]) { began = 1; circle = circle u " -> " }
      print circle start ": a circle of includes"
      found = 1
    }
    exit found
  }
' "${files[@]}"
