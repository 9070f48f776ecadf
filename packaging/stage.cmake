# Run by CPack when the program's folder stands in the staging root: adds the files that Debian
# expects elsewhere in the system.

set(root ${CPACK_TEMPORARY_DIRECTORY})
set(program ${root}${CPACK_PACKAGING_INSTALL_PREFIX})
set(from ${CPACK_QUORVEL_PACKAGING})
set(doc usr/share/doc/${CPACK_PACKAGE_NAME})

# The same commit gives the same package, whenever and wherever it is built: this is the date of
# every file in it.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND git -C ${from} log -1 --format=%ct
                  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT date)
    string(TIMESTAMP date %s)
    message(WARNING "These sources are no git checkout: the package is dated now.")
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${date})
endif()

# place(FILE FOLDER [NAME]): puts a file of packaging/ into a folder of the staging root. Not by
# file(INSTALL): CPack runs this with DESTDIR set.
function(place file folder)
  get_filename_component(name ${file} NAME)
  if(ARGC GREATER 2)
    set(name ${ARGV2})
  endif()
  configure_file(${from}/${file} ${root}/${folder}/${name} COPYONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

place(quorvelserver.service usr/lib/systemd/system)
place(quorvelserver.default etc/default quorvelserver)
place(60-quorvelserver.rules usr/lib/udev/rules.d)
place(60-quorvelserver.polkit usr/share/polkit-1/rules.d 60-quorvelserver.rules)
place(debian/copyright ${doc})
place(debian/lintian-overrides usr/share/lintian/overrides quorvelserver)

# The two settings files are made at installation, from these defaults, and are no files of the
# package: the service rewrites one, every roll-out the other, and an upgrade must not stop to ask.
foreach(settings quorvel.ini quorvel_service.ini)
  file(RENAME ${program}/bin/${settings} ${program}/share/${settings})
endforeach()
# A desktop that gets the service from the package lets no other machine in.
file(APPEND ${program}/share/quorvel_service.ini "
; Who may use the service: no other machine, and the pages of every site until the first is entered
; with quorvel-policy.
[ACCESS]
listen=loopback
")

file(RENAME ${program}/share/man ${root}/usr/share/man)
file(COPY ${program}/share/doc/${CPACK_PACKAGE_NAME}/ DESTINATION ${root}/${doc})
file(REMOVE_RECURSE ${program}/share/doc)
configure_file(${from}/debian/changelog.in ${root}/${doc}/changelog @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(GLOB_RECURSE compressible ${root}/usr/share/man/*.[1-8] ${root}/${doc}/changelog)
execute_process(COMMAND gzip -9n ${compressible} COMMAND_ERROR_IS_FATAL ANY)

# CPack strips the programs but leaves the compiler's name in them.
file(GLOB programs ${program}/bin/*)
foreach(file IN LISTS programs)
  file(READ ${file} magic LIMIT 4 HEX)
  if(magic STREQUAL 7f454c46)
    execute_process(COMMAND ${CPACK_QUORVEL_STRIP} --strip-unneeded --remove-section=.comment
                            --remove-section=.note ${file} COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()

set(parts ${root}/${doc}/${CPACK_PACKAGE_NAME}.spdx.json)
execute_process(COMMAND ${from}/parts_list.py ${root} ${CPACK_PACKAGING_INSTALL_PREFIX}
                        ${CPACK_PACKAGE_NAME} ${CPACK_PACKAGE_VERSION} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}
                OUTPUT_FILE ${parts} COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD ${parts} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

file(MAKE_DIRECTORY ${root}/var/lib/quorvelserver ${root}/usr/bin)
# Folders made here follow the builder's umask; the package's do not.
file(CHMOD_RECURSE ${root} DIRECTORY_PERMISSIONS
     OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The page is found in the working directory, whose owner and mode are set at installation.
file(CREATE_LINK ${CPACK_PACKAGING_INSTALL_PREFIX}/mount-origin
     ${root}/var/lib/quorvelserver/mount-origin SYMBOLIC)
# The commands are found by name. The service itself is not linked: it looks for its INI files in
# the folder of the path under which it is started.
file(GLOB commands RELATIVE ${program}/bin ${program}/bin/quorvel-*)
list(REMOVE_ITEM commands quorvel-host quorvel-settings)
foreach(command IN LISTS commands)
  file(CREATE_LINK ${CPACK_PACKAGING_INSTALL_PREFIX}/bin/${command} ${root}/usr/bin/${command}
       SYMBOLIC)
endforeach()
