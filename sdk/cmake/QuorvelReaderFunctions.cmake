# quorvel_add_reader(NAME SOURCE...)
#
# Adds the reader library libNAME.so. It exports the four entry points and no other symbol, and it
# does not link while a symbol is undefined: the service resolves all symbols when it loads a
# library, so a missing one would show only there.
function(quorvel_add_reader name)
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE QuorvelReader::QuorvelReader)
  set_target_properties(${name} PROPERTIES
    PREFIX lib SUFFIX .so C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)

  # Beside this file in the installed package, one folder up in the source tree.
  find_file(QUORVEL_READER_MAP quorvel_reader.map NO_CACHE REQUIRED NO_DEFAULT_PATH
    PATHS ${CMAKE_CURRENT_FUNCTION_LIST_DIR} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/..)
  target_link_options(${name} PRIVATE
    -Wl,--version-script=${QUORVEL_READER_MAP} -Wl,--no-undefined)
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${QUORVEL_READER_MAP})
endfunction()
