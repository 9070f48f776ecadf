# Sources whose texts are GBK at run time stay UTF-8 in the tree. They are compiled from a copy in
# which each character outside ASCII stands as the octal escapes of its GBK bytes: no compiler, and
# no version of the language, can take that amiss.
find_program(ICONV_PROGRAM iconv REQUIRED)
find_program(OD_PROGRAM od REQUIRED)
find_program(AWK_PROGRAM awk REQUIRED)

# quorvel_gbk_source(SOURCE COPY): makes COPY, in the current build folder, of the UTF-8 file
# SOURCE. A target that lists COPY among its sources gets it made before it is compiled.
function(quorvel_gbk_source source copy)
  set(from ${CMAKE_CURRENT_SOURCE_DIR}/${source})
  set(to ${CMAKE_CURRENT_BINARY_DIR}/${copy})
  # The first byte of a GBK character is 128 or more; the second may be any, a backslash included.
  set(escape [[second || $1 >= 128 { printf "\\%03o", $1; second = !second; next } { printf "%c", $1 }]])
  add_custom_command(OUTPUT ${to}
    COMMAND ${ICONV_PROGRAM} -f UTF-8 -t GBK -o ${to}.gbk ${from}
    COMMAND ${OD_PROGRAM} -An -v -tu1 -w1 ${to}.gbk | ${AWK_PROGRAM} "${escape}" > ${to}
    DEPENDS ${from} VERBATIM)
endfunction()
