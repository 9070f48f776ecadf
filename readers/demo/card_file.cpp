#include "readers/demo/card_file.h"

#include <dlfcn.h>

#include <charconv>
#include <cstring>
#include <filesystem>

#include "readers/demo/failure.h"
#include "util/text/conversion.h"

namespace {

constexpr char kFileName[] = "demo_cards.ini";
constexpr char kReaderSection[] = "READER";
constexpr int kMaxDelayMs = 60000;

/// Any object of this library tells the dynamic loader which file is meant.
constexpr char kInThisLibrary = 0;

std::string library_directory() {
  Dl_info info;
  if (dladdr(&kInThisLibrary, &info) == 0 || info.dli_fname == nullptr) return ".";
  std::error_code error;  // a relative path stands for the directory at loading time
  const std::filesystem::path file = std::filesystem::absolute(info.dli_fname, error);
  return error ? "." : file.parent_path().string();
}

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

CardFile::CardFile() : path(library_directory() + "/" + kFileName) {}

void CardFile::refresh() {
  struct stat now = {};
  if (stat(path.c_str(), &now) != 0)
    throw Failure(failures::kCardFile, path + " - " + std::strerror(errno));
  if (cards && same_file(now, state)) return;
  auto fresh = std::make_unique<CIni>();
  if (fresh->OpenFile(path.c_str(), "r") != 0)
    throw Failure(failures::kCardFile, path + " - " + std::strerror(errno));
  fresh->CloseFile();
  const std::string charset = fresh->GetStr(kReaderSection, "charset");
  if (charset != "gbk" && charset != "utf-8")
    throw Failure(failures::kCardFile, "[READER] charset=" + charset);
  is_utf8 = charset == "utf-8";
  cards = std::move(fresh);
  state = now;
}

std::string CardFile::text(const std::string& section, const char* key) const {
  std::string value = cards->GetStr(section.c_str(), key);
  if (is_utf8) return value;
  std::string utf8;
  if (!gbk_to_utf8(value, utf8))
    throw Failure(failures::kCardFile, "[" + section + "] " + key + "：与charset不符");
  return utf8;
}

int CardFile::delay_ms(const std::string& section) const {
  const std::string value = cards->GetStr(section.c_str(), "delay_ms");
  if (value.empty()) return 0;
  int delay = -1;
  const char* end = value.data() + value.size();
  const auto [stopped, error] = std::from_chars(value.data(), end, delay);
  if (error != std::errc() || stopped != end || delay < 0 || delay > kMaxDelayMs)
    throw Failure(failures::kCardFile, "[" + section + "] delay_ms=" + value);
  return delay;
}
