# The Debian package: what "cmake --install" puts into the program's folder, and around it what
# makes it a part of the system (packaging/stage.cmake). scripts/package builds it.

set(QUORVEL_MAINTAINER "Brennic <packages@brennic.example>" CACHE STRING
    "Maintainer named in the Debian package, as \"Name <address>\"")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvelserver)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /opt/apps/quorvelserver)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/stage.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/repack.cmake)
set(CPACK_QUORVEL_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(CPACK_QUORVEL_STRIP ${CMAKE_STRIP})
set(CPACK_QUORVEL_MAINTAINER ${QUORVEL_MAINTAINER})

# A toolchain file for another machine names its architecture; CPack would take the builder's.
if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${QUORVEL_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "local card-reading service for web pages")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Runs on the machine to which a smart-card reader is attached and answers web
pages in the user's browser: a page sends a JSON request over a WebSocket on
this machine, a reader library reads the card, and the page gets one JSON
reply.
.
Contains the service with a simulated reader, a status and test page, and
commands to send a request, to find out why a card is not read, to make the
TLS certificate and to enter web sites into the browsers' policies.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, openssl, python3:any")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates, libnss3-tools")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "pcscd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
# Debian's own modes for these files, whatever the umask of the checkout was.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
