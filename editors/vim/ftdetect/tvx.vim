autocmd BufRead,BufNewFile *.tvx setfiletype tvx
