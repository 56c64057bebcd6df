# With -Og, which the preset sets: compiled as quickly as without optimisation,
# half as large, and quicker to start: most tests start the program many times.
if(TROVIK_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
