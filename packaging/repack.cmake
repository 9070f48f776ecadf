# Run by CPack when the package is made: makes it anew without what CPack took from the builder's
# machine, the size of folders on its file system (in Installed-Size) and its umask.

set(tree ${CPACK_TEMPORARY_DIRECTORY}.tree)
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb -R ${deb} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  # As Debian counts: files in whole KiB, everything else as one.
  set(kibibytes 0)
  file(GLOB_RECURSE entries LIST_DIRECTORIES true ${tree}/*)
  list(FILTER entries EXCLUDE REGEX ^${tree}/DEBIAN)
  foreach(entry IN LISTS entries)
    set(bytes 1)
    if(NOT IS_DIRECTORY ${entry} AND NOT IS_SYMLINK ${entry})
      file(SIZE ${entry} bytes)
    endif()
    math(EXPR kibibytes "${kibibytes} + (${bytes} + 1023) / 1024")
  endforeach()
  file(READ ${tree}/DEBIAN/control control)
  string(REGEX REPLACE "\nInstalled-Size: [0-9]+" "\nInstalled-Size: ${kibibytes}" control "${control}")
  file(WRITE ${tree}/DEBIAN/control "${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group -b ${tree} ${deb}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
