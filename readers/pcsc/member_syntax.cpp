#include <algorithm>

#include "readers/pcsc/step_syntax.h"
#include "readers/pcsc/tlv.h"
#include "readers/pcsc/words.h"

namespace {

constexpr unsigned kLargestPosition = 0xFFFF;

template <typename Value>
struct Named {
  const char* word;
  Value value;
};

constexpr Named<Decoding> kDecodings[] = {
    {"ascii", Decoding::kAscii}, {"latin1", Decoding::kLatin1},    {"cp1252", Decoding::kCp1252},
    {"utf-8", Decoding::kUtf8},  {"utf-16be", Decoding::kUtf16be}, {"gbk", Decoding::kGbk},
    {"hex", Decoding::kHex},     {"bcd", Decoding::kBcd},          {"number", Decoding::kNumber}};

constexpr Named<DateOrder> kDateOrders[] = {
    {"ymd", DateOrder::kYmd}, {"dmy", DateOrder::kDmy}, {"mdy", DateOrder::kMdy}};

/// Takes the next word, which must be one of the table.
template <typename Value, std::size_t kSize>
Value choose(Words& words, const char* what, const Named<Value> (&table)[kSize]) {
  const std::string_view word = words.next();
  std::string known;
  for (const Named<Value>& row : table) {
    if (word == row.word) return row.value;
    known += std::string(known.empty() ? "" : ", ") + row.word;
  }
  throw Mistake(std::string(what) + "“" + std::string(word) + "”无效，可用：" + known);
}

/// Tags in hexadecimal, a "/" between each and the one within it.
std::vector<std::uint32_t> parse_tag_path(std::string_view text) {
  std::vector<std::uint32_t> path;
  while (true) {
    const std::string_view tag = text.substr(0, text.find('/'));
    const auto value = parse_ber_tag(tag);
    if (!value) throw Mistake("“" + std::string(tag) + "”不是BER标签，应如5F2D或53/30");
    path.push_back(*value);
    if (tag.size() == text.size()) return path;
    text.remove_prefix(tag.size() + 1);
  }
}

std::optional<Cut> parse_cut(Words& words) {
  Cut cut;
  if (words.take("bytes")) {
    cut.kind = Cut::Kind::kRange;
    cut.first = words.number("起始位置", 0, kLargestPosition);
    cut.count = words.optional_number("长度", 1, kLargestPosition).value_or(0);
  } else if (words.take("ber")) {
    cut.kind = Cut::Kind::kBer;
    cut.path = parse_tag_path(words.next());
  } else if (words.peek() == "simple" || words.peek() == "chained") {
    cut.kind = words.next() == "simple" ? Cut::Kind::kSimple : Cut::Kind::kChained;
    cut.first = static_cast<unsigned char>(words.bytes("标签", 1, 1)[0]);
  } else {
    return std::nullopt;
  }
  return cut;
}

/// Which record of several is meant; a step that reads one needs no such word.
void parse_record(Words& words, const Step& step, Member& member) {
  Cut cut;
  cut.kind = Cut::Kind::kRecord;
  cut.first = step.first;
  if (words.take("record"))
    cut.first = words.number("记录号", step.first, step.first + step.count - 1);
  else if (step.count > 1)
    throw Mistake("该步骤读多条记录，请在“" + step.result + "”之后写record和记录号");
  member.cuts.push_back(cut);
}

std::size_t find_step(std::string_view result, const std::vector<Step>& steps) {
  const auto found = std::find_if(steps.begin(), steps.end(), [&](const Step& step) {
    return !result.empty() && step.result == result;
  });
  if (found != steps.end()) return static_cast<std::size_t>(found - steps.begin());
  throw Mistake("之前没有以“as " + std::string(result) + "”结尾的step");
}

}  // namespace

Member parse_member(std::string_view name, std::string_view value, const std::vector<Step>& steps) {
  Words words(value);
  Member member;
  member.name = name;
  member.step = find_step(words.next(), steps);
  const Step& step = steps[member.step];
  if (step.verb == Step::Verb::kReadRecords) parse_record(words, step, member);
  while (const auto cut = parse_cut(words)) member.cuts.push_back(*cut);
  if (words.take("strip")) member.strip = words.bytes("strip", 1, 16);
  member.decoding = choose(words, "解码方式", kDecodings);
  if (words.take("date")) member.date = choose(words, "日期顺序", kDateOrders);
  member.required = words.take("required");
  if (!words.empty()) throw Mistake("多余的“" + std::string(words.peek()) + "”，请删除");
  return member;
}
