#pragma once

/// Names in the log each word of the command line that has no effect, or another than its writer
/// will expect.
void report_command_line(int argc, const char* const* argv);
