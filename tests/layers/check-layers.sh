#!/usr/bin/env bash
# Checks which part of the system includes which, from the #include lines of
# the sources below a directory. Prints a line for each breach; exit code 1 if
# there is one.
#
#   check-layers.sh ROOT
#
# module -> job -> host/application -> host/foundation, and trovik -> host. The
# program meets the module only through its entry points, and the libraries
# for databases, clusters and terminals stay inside the program; that for
# databases inside trovik/queue. Those for images stay in its helper
# trovik/imagetool, which the program only starts. A source includes its own header
# first, so that each header is compiled with nothing before it.
set -euo pipefail

root=$1
cd "$root"

mapfile -t files < <(find host module job trovik \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | LC_ALL=C sort)
if [ ${#files[@]} -eq 0 ]; then
  echo "$root: no sources below host, module, job and trovik"
  exit 1
fi

awk '
  function layer(path) {
    if (path ~ /^host\/foundation\// || path == "host/Foundation.h") return "host/foundation"
    if (path ~ /^host\/application\// || path == "host/Application.h") return "host/application"
    if (path ~ /^trovik\/imagetool\//) return "trovik/imagetool"
    if (path ~ /^(job|module|trovik)\//) { sub(/\/.*/, "", path); return path }
    return ""
  }
  function breach(text) {
    printf "%s:%d: %s\n", FILENAME, FNR, text
    found = 1
  }
  BEGIN {
    for (i = 1; i < ARGC; i++) is_there[ARGV[i]] = 1
    may["host/foundation"] = "host/foundation"
    may["host/application"] = "host/application host/foundation"
    may["job"] = "job host/application host/foundation"
    may["module"] = "module job host/application host/foundation"
    may["trovik"] = "trovik host/application host/foundation"
    may["trovik/imagetool"] = "trovik/imagetool trovik"
    database = "^(sqlite3|sqlite3ext)\\.h$|^SQLiteCpp/"
    outside = "^(curses|ncurses|term|termios|termio)\\.h$|^sys/(termios|ttydefaults)\\.h$|^(slurm|ncursesw)/"
    images = "^(png|pngconf|jpeglib|turbojpeg|tiff|tiffio|ImathBox|gd|ft2build)\\.h$" \
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
  END { exit found }
' "${files[@]}"
