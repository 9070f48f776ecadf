#pragma once

#include <cstddef>
#include <string>

/// Directory of the program file without a trailing "/", as the program was started: an absolute
/// path, or one that begins with "." and is relative to the working directory. A start through the
/// search path gives the directory of the running executable.
std::string program_directory();

/// Directory of the running executable, links followed; empty when the kernel does not tell it.
std::string executable_directory();

/// Size in bytes of the buffers that hold a path beside the program, unless a caller says less.
inline constexpr std::size_t kProgramPathSize = 255;

/// Writes the path of the file `name` beside the program into `out` of `size` bytes: `name` itself
/// when it begins with "/", else the program's directory, "/" and `name`. False, with `out` empty,
/// when the path does not fit: a path cut short would name another file.
bool getfilepath(char* out, const char* name, std::size_t size = kProgramPathSize);
