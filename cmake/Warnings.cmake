# Strict for us, invisible to whoever builds against the installed package.
add_library(trovik_warnings INTERFACE)
target_compile_options(trovik_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-align -Woverloaded-virtual -Wduplicated-cond -Wlogical-op -Wnull-dereference
  -Wdouble-promotion -Wformat=2 -Wundef)
# Of several sources in one, all but the first look like headers to it.
target_compile_options(trovik_warnings INTERFACE $<$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>:-Wno-subobject-linkage>)
# g++ 12 sees overlaps and null pointers in the standard library's own texts
# once they are inlined; those two are not warnings about our code.
target_compile_options(trovik_warnings INTERFACE -Wno-restrict -Wno-null-dereference)
