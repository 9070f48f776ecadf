#pragma once

/// Replaces the value of an existing key of an existing section in the INI file at `path`, whole
/// line by whole line; no line is added. A line counts as the key's when it begins with the key's
/// text. All other lines keep their bytes; a replaced line ends in a line feed.
///
/// `header` is the section's header line, such as "[SERVER]"; a header line that begins with it
/// opens the section, and the next header line of any other section ends it. Lines and files may
/// be of any length. When the file can't be written completely its old content is put back.
/// A value that is not stored is reported in the log.
void IniWriteValue(const char* header, const char* key, const char* value, const char* path);

/// The same for the section's bare name. -1 when an argument is null, else 0.
int writeStringVlaue(const char* section, const char* key, const char* value, const char* path);

/// The same for an integer, written in decimal.
void writeIntValue(const char* section, const char* key, int value, const char* path);
