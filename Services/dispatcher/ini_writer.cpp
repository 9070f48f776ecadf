#include "Services/dispatcher/ini_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "config/ini.h"
#include "util/log/log.h"
#include "util/os/regular_file.h"
#include "util/text/conversion.h"

namespace {

struct Rewrite {
  std::string content;
  bool section_found = false;
  bool key_found = false;
};

bool begins_with(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

/// Whether the search for the header passes the line over unseen.
bool is_comment_or_empty(std::string_view line) {
  return line.empty() || line[0] == ';' || line[0] == '\r' || line[0] == '\n';
}

Rewrite replace_lines(std::string_view old, std::string_view header, std::string_view key,
                      std::string_view value) {
  Rewrite result;
  const std::string replacement = std::string(key).append("=").append(value).append("\n");
  bool in_section = false;
  while (!old.empty()) {
    const std::size_t line_feed = old.find('\n');
    const std::string_view line =
        old.substr(0, line_feed == std::string_view::npos ? line_feed : line_feed + 1);
    old.remove_prefix(line.size());
    if (in_section && begins_with(line, key)) {
      result.content += replacement;
      result.key_found = true;
      continue;
    }
    if (!is_comment_or_empty(line) && begins_with(line, header)) {
      in_section = true;
      result.section_found = true;
    } else if (is_section_header(line)) {
      in_section = false;
    }
    result.content += line;
  }
  return result;
}

/// The whole rest of the file; false on a read error.
bool read_all(std::FILE* file, std::string& content) {
  char piece[4096];
  while (const std::size_t length = std::fread(piece, 1, sizeof piece, file))
    content.append(piece, length);
  return std::ferror(file) == 0;
}

bool write_at(int fd, std::string_view bytes, std::size_t offset) {
  while (!bytes.empty()) {
    const ssize_t written = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
    offset += static_cast<std::size_t>(written);
  }
  return true;
}

/// Overwrites the old content in place, since the service may write this file but not its folder.
/// What makes the file longer goes first: where the disk is full, that fails before any old byte
/// has been touched. The length is cut last.
bool overwrite(int fd, std::string_view old, std::string_view content) {
  const std::size_t common = std::min(old.size(), content.size());
  return write_at(fd, content.substr(common), common) &&
         write_at(fd, content.substr(0, common), 0) &&
         ftruncate(fd, static_cast<off_t>(content.size())) == 0 && fsync(fd) == 0;
}

}  // namespace

void IniWriteValue(const char* header, const char* key, const char* value, const char* path) {
  std::string reason;
  const UniqueFile file = open_regular_to_update(path, reason);
  if (!file) {
    print("%s: Opent file %s failed.\n", "Services/dispatcher", shown(path).c_str());
    log_error("%s can't be written: %s\n", shown(path).c_str(), reason.c_str());
    return;
  }
  std::string old;
  if (!read_all(file.get(), old)) {
    log_error("%s can't be read: %s; nothing is stored\n", shown(path).c_str(),
              std::strerror(errno));
    return;
  }
  const Rewrite result = replace_lines(old, header, key, value);
  const int fd = fileno(file.get());
  if (!overwrite(fd, old, result.content)) {
    log_error("%s can't be written: %s; its old content is put back\n", shown(path).c_str(),
              std::strerror(errno));
    if (!overwrite(fd, result.content, old))
      log_error("%s: putting back the old content failed: %s\n", shown(path).c_str(),
                std::strerror(errno));
    return;
  }
  if (result.key_found) return;
  if (result.section_found)
    print("No key = %s\n", key);
  else
    print("No section = %s\n", header);
  log_error("%s has no line %s= under %s: the value is not stored; add it\n", shown(path).c_str(),
            key, header);
}

int writeStringVlaue(const char* section, const char* key, const char* value, const char* path) {
  if (section == nullptr || key == nullptr || value == nullptr || path == nullptr) {
    print("%s: input parameter(s) is NULL!\n", "writeStringVlaue");
    return -1;
  }
  const std::string header = std::string("[").append(section).append("]");
  IniWriteValue(header.c_str(), key, value, path);
  return 0;
}

void writeIntValue(const char* section, const char* key, int value, const char* path) {
  writeStringVlaue(section, key, std::to_string(value).c_str(), path);
}
