" Job types of trovik, as docs/tvx.md tells them.
if exists('b:current_syntax')
  finish
endif
let s:cpoptions = &cpoptions
set cpoptions&vim

syntax case ignore
syntax sync minlines=1 maxlines=1

syntax match tvxComment /^\s*[;#].*$/ contains=tvxTodo,@Spell
syntax keyword tvxTodo TODO FIXME XXX contained

syntax match tvxSection /^\s*\[[^]]*\]/ contains=tvxKnownSection
syntax match tvxKnownSection /\[\zs\s*\%(Module\|SuccessText\|ErrorText\|ErrorIgnore\|FindLatestExecutable\|PrimaryParameters\|SecondaryParameters\|PrimaryCommands\|SecondaryCommands\|AutoDetect\|OverrideDefaults\|OverrideFlags\|OverrideFilters\)\s*\ze\]/ contained

syntax match tvxKey /^\s*[^][;#= \t][^=]*\ze=/ contains=tvxKnownKey nextgroup=tvxEquals
" Of [Module], parameters, commands and [FindLatestExecutable].
syntax match tvxKnownKey /^\s*\%(ID\|Name\|Shortcut\|Help\|Details\|Command\|ImageStartText\|ImageEndText\|ImageNotEndText\|DefaultEnabled\|CheckForMultipleFiles\|SceneNumberLength\|ErrorDetectPosition\|Type\|Label\|Default\|Flags\|Filter\|Minimum\|Maximum\|Choices\|Required\|LinuxRoots\|LinuxBases\|LinuxExe\)\s*\ze=/ contained
syntax match tvxEquals /=/ contained nextgroup=tvxValue
syntax match tvxValue /.*/ contained contains=tvxEscape,tvxReference,tvxBoolean,tvxNumber,tvxId,tvxType,tvxFlag

syntax match tvxBoolean /\%(^[^=]*=\s*\)\@<=\%(yes\|no\|true\|false\|on\|off\)\ze\s*$/ contained
syntax match tvxNumber /\%(^[^=]*=\s*\)\@<=[-+]\=\d\+\%(\.\d\+\)\=\ze\s*$/ contained
syntax match tvxId /\%(^[^=]*=\s*\)\@<=\x\{8}-\%(\x\{4}-\)\{3}\x\{12}\ze\s*$/ contained
syntax match tvxType /\%(^\s*Type\s*=\s*\)\@<=\%(Text\|Multiline\|Integer\|Decimal\|Choice\|Range\|Duration\|Boolean\|BoolOverride\|File\|Folder\|Heading\|List\)\ze\s*$/ contained
syntax match tvxFlag /\%([=,]\s*\)\@<=\%(Required\|OfJob\|ReadOnly\|OfEngine\|SubmitOnly\|Literal\|Advanced\|Editable\|Visible\|Deprecated\|AffectsCommand\)\ze\s*\%(,\|$\)/ contained

" $(Name.Command(arguments).Command); $$( is plain.
syntax match tvxEscape /\$\$(/ contained
syntax region tvxReference matchgroup=tvxDelimiter start=/\$\@<!\$(/ end=/)/ oneline contained contains=tvxCommand,tvxArguments
syntax match tvxCommand /\.\%(Enquote\|Dequote\|PythonString\|LispString\|JsonString\|Leaf\|Branch\|Base\|Extension\|Start\|End\|Count\|Pad\|Upper\|Lower\|Default\|Prefix\|Suffix\|If\|Option\|Add\|Replace\|DoublePercent\|Each\|PlainPath\|TranslateToLocal\|TranslateContents\)\>/ contained
syntax region tvxArguments matchgroup=tvxDelimiter start=/(/ skip=/\\./ end=/)/ oneline contained contains=tvxInner
syntax region tvxInner start=/(/ skip=/\\./ end=/)/ oneline contained contains=tvxInner transparent

highlight default link tvxComment Comment
highlight default link tvxTodo Todo
highlight default link tvxSection PreProc
highlight default link tvxKnownSection Structure
highlight default link tvxKey Identifier
highlight default link tvxKnownKey Keyword
highlight default link tvxEquals Operator
highlight default link tvxBoolean Boolean
highlight default link tvxNumber Number
highlight default link tvxId Constant
highlight default link tvxType Type
highlight default link tvxFlag Constant
highlight default link tvxEscape SpecialChar
highlight default link tvxReference Macro
highlight default link tvxCommand Function
highlight default link tvxArguments String
highlight default link tvxDelimiter Delimiter

let b:current_syntax = 'tvx'
let &cpoptions = s:cpoptions
unlet s:cpoptions
