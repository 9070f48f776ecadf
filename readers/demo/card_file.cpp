#include "readers/demo/card_file.h"

#include <cerrno>
#include <cstring>

#include "readers/common/failure.h"
#include "util/text/conversion.h"
#include "util/text/number.h"

namespace {

constexpr char kReaderSection[] = "READER";
constexpr int kMaxDelayMs = 60000;

}  // namespace

void CardFile::refresh() {
  if (!file.changed()) return;
  auto fresh = std::make_unique<CIni>();
  if (fresh->OpenFile(file.path().c_str(), "r") != 0)
    throw Failure(failures::kCardFile, file.path() + " - " + std::strerror(errno));
  fresh->CloseFile();
  const std::string charset = fresh->GetStr(kReaderSection, "charset");
  if (charset != "gbk" && charset != "utf-8")
    throw Failure(failures::kCardFile, "[READER] charset=" + charset);
  is_utf8 = charset == "utf-8";
  cards = std::move(fresh);
  file.seen();
}

std::string CardFile::text(const std::string& section, const char* key) const {
  std::string value = cards->GetStr(section.c_str(), key);
  if (is_utf8) return value;
  std::string utf8;
  if (!gbk_to_utf8(GbkView(value), utf8))
    throw Failure(failures::kCardFile, "[" + section + "] " + key + "：与charset不符");
  return utf8;
}

int CardFile::delay_ms(const std::string& section) const {
  const std::string value = cards->GetStr(section.c_str(), "delay_ms");
  if (value.empty()) return 0;
  const auto delay = whole_number(value, 0, kMaxDelayMs);
  if (!delay) throw Failure(failures::kCardFile, "[" + section + "] delay_ms=" + value);
  return *delay;
}
