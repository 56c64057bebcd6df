# The description of a type reads like a form.
. "$(dirname "$0")/../lib.sh"
type_file form <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Form
Shortcut=f
Help=Shows how forms look.
Details=First paragraph.
Command=$(Width)
[PrimaryParameters]
1=Picture
2=Width
3=Format
4=Old
[PrimaryCommands]
1=View
[Picture]
Type=Heading
[Width]
Type=Integer
Label=Width in pixels
Default=640
Minimum=1
Maximum=16384
Required=Yes
Flags=OfJob, Visible
Help=The width of the picture. It is wrapped where the line ends, as every help text is.
[Format]
Type=Choice
Choices=png, exr
Default=png
Flags=Visible
[Old]
Type=Text
Flags=Visible, Deprecated
[View]
Label=View the picture
Help=Opens a viewer.
Command=viewer $(OutputFolder)
END

run 0 type form
sed -n '1,/^Job$/p' "$TMP/out" | sed '$d' >"$TMP/head"
file_is "$TMP/head" <<'END'
Form
also called f
ID 11111111-2222-3333-4444-555555555555

Shows how forms look.

First paragraph.

Picture
  Width  Width in pixels
      whole number, 1 to 16384; required
      default: 640
      The width of the picture. It is wrapped where the line ends, as every help
      text is.
  Format
      one of: png, exr
      default: png

END
sed -n '/^Commands$/,$p' "$TMP/out" >"$TMP/tail"
file_is "$TMP/tail" <<'END'
Commands
  View  View the picture
      runs: viewer $(OutputFolder)
      Opens a viewer.
END
"$HELPER" width 80 <"$TMP/out"
grep -q '^  Old' "$TMP/out" && fail "a deprecated parameter is shown"

run 0 type form --all
sed -n '/^  Old$/,/^$/p' "$TMP/out" >"$TMP/old"
file_is "$TMP/old" <<'END'
  Old
      text; deprecated
      flags: Visible, Deprecated

END
