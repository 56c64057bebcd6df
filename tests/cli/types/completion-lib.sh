# For the tests of completion in a shell: what is installed, and what was rendered.
. "$(dirname "$0")/../lib.sh"
completions=$(cd "$(dirname "$0")/../../../completions" && pwd)
sketch_type
type_file two <<'END'
[Module]
ID=11111111-2222-3333-4444-666666666666
Name=Two Words
Help=Has a name of two words.
[PrimaryParameters]
1=Format
2=Alpha
[Format]
Type=Choice
Label=Format
Choices=PNG, JPEG 2000
[Alpha]
Type=Boolean
Label=Transparent
END
scenes 2
run 0 run sketch shot_0001.txt
