" Job types of trovik.
if exists('b:did_ftplugin')
  finish
endif
let b:did_ftplugin = 1

setlocal comments=:;,:# commentstring=;\ %s
compiler tvx

let b:undo_ftplugin = 'setlocal comments< commentstring< makeprg< errorformat<'
