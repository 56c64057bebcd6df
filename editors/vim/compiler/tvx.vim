" :make runs "trovik check" on the file; :cnext goes through what it found.
if exists('current_compiler')
  finish
endif
let current_compiler = 'tvx'

CompilerSet makeprg=trovik\ check\ --color\ never\ %:S
" The line and its caret are left out; the hint belongs to the message.
CompilerSet errorformat=%E%f:%l:%c:\ error:\ %m,%W%f:%l:%c:\ warning:\ %m,%Zhint:\ %m,%-C%.%#,%-G%.%#
