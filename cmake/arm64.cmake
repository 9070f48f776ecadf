# Toolchain file: builds for arm64 on another machine with Debian's cross compiler. The libraries
# are the :arm64 packages, in a root where no others of the same name are (scripts/package).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:/usr/share/pkgconfig)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-arm64)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
