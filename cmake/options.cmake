# Compile settings shared by every target, as interface targets.

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

# Warnings, sanitizers and hardening.
add_library(quorvel_options INTERFACE)
target_compile_options(quorvel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_include_directories(quorvel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(QUORVEL_SANITIZE)
  target_compile_options(quorvel_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quorvel_options INTERFACE -fsanitize=address,undefined)
else()
  target_compile_options(quorvel_options INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=3>)
  target_link_options(quorvel_options INTERFACE -Wl,-z,relro,-z,now)
endif()

# The service's own texts are GBK at run time while the sources stay UTF-8. Only GCC converts
# literals; other compilers serve the analysers and fuzzers, where the texts' bytes do not matter.
add_library(quorvel_gbk INTERFACE)
target_link_libraries(quorvel_gbk INTERFACE quorvel_options)
target_compile_options(quorvel_gbk INTERFACE
  $<$<CXX_COMPILER_ID:GNU>:-fexec-charset=GBK>)
