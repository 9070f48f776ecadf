# Compile settings shared by every target, as interface targets.

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_CXX_STANDARD)
  set(CMAKE_CXX_STANDARD 17)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

# Warnings, sanitizers and hardening.
add_library(quorvel_options INTERFACE)
target_compile_options(quorvel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_include_directories(quorvel_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
if(QUORVEL_SANITIZE)
  target_compile_options(quorvel_options INTERFACE
    -fsanitize=${QUORVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quorvel_options INTERFACE -fsanitize=${QUORVEL_SANITIZE})
else()
  target_compile_options(quorvel_options INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=3>)
  target_link_options(quorvel_options INTERFACE -Wl,-z,relro,-z,now)
endif()

