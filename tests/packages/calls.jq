# What a shell script calls, from shfmt's JSON: "KIND<TAB>FILE:LINE<TAB>WORD".
# The first word of each command is one, and so is the word after it where it
# starts others. "function" are the names that scripts define, "type" the types
# that they run.
def literal:
  [.Parts[] | if .Type == "Lit" or .Type == "SglQuoted" then .Value
    elif .Type == "DblQuoted" then (.Parts // [] | map(if .Type == "Lit" then .Value else null end)
      | if any(. == null) then null else add end)
    else null end]
  | if any(. == null) then "" else add end;

def starts_others:
  IN("command", "env", "exec", "xargs", "timeout", "setsid", "nohup", "sudo", "nice", "setpriv", "unshare", "tied");

# The words that name programs: what others start comes after their options,
# the values of those, and variables.
def programs:
  .[0],
  if .[0] | starts_others then
    .[1:] | until(length == 0 or .[0] == "" or (.[0] | test("^[^-=][^=]*$") and test("[^0-9.]"));
      if (.[0] | startswith("-")) and .[1] == "" then .[2:] else .[1:] end)
    | if length == 0 then empty else programs end
  else empty end;

.Name as $file
| .. | objects
| if .Type == "FuncDecl" then "function\t\($file):0\t\(.Name.Value)"
  elif .Type == "CallExpr" and .Args then
    "\($file):\(.Args[0].Pos.Line)" as $place
    | [.Args[] | literal // ""] as $words
    | ($words | programs | "program\t\($place)\t\(.)"),
      (if ($words[0] | endswith("bin/trovik")) and $words[1] == "run" then "type\t\($place)\t\($words[2])" else empty end)
  else empty end
