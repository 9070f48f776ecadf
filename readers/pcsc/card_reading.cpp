#include "readers/pcsc/card_reading.h"

#include <algorithm>
#include <map>

#include "readers/pcsc/apdu.h"
#include "readers/pcsc/card_data_error.h"
#include "readers/pcsc/decoding.h"
#include "readers/pcsc/tlv.h"
#include "util/text/hex.h"

namespace {

using Verb = Step::Verb;

constexpr unsigned char kSelect = 0xA4;
constexpr unsigned char kReadBinary = 0xB0;
constexpr unsigned char kReadRecord = 0xB2;
constexpr unsigned char kReadBuffer = 0x52;  // of a CAC, with class kProprietary
constexpr unsigned char kGetData = 0xCA;
constexpr unsigned char kGetObject = 0xCB;  // GET DATA with the tag in the command's data

constexpr std::size_t kEndOfOffsets = 0x8000;  // what a READ BINARY can name

/// What a step has read: the records, or the one value of any other step.
using Values = std::vector<std::string>;

[[noreturn]] void refuse(const Step& step, unsigned status) {
  const std::string bytes = {static_cast<char>(status >> 8), static_cast<char>(status & 0xFF)};
  throw Failure(failures::kCardRefused, step.text + " - " + hexadecimal(bytes));
}

/// Cards differ in whether they insist on giving the file's control information or refuse to.
Answer select(Card& card, unsigned char p1, const std::string& what, bool with_information) {
  static constexpr unsigned char kWithInformation = 0x00;
  static constexpr unsigned char kNoInformation = 0x0C;
  const auto command = [&](bool with) {
    return Command{kSelect, p1, with ? kWithInformation : kNoInformation, what,
                   with ? kShortest : 0};
  };
  Answer answer = send(card, command(with_information));
  if (answer.status != status::kWrongParameters) return answer;
  return send(card, command(!with_information));
}

Answer select(Card& card, const Step& step) {
  switch (step.verb) {
    case Verb::kSelectAid:
      return select(card, 0x04, step.argument, true);
    case Verb::kSelectPath:
      return select(card, 0x08, step.argument, false);
    case Verb::kSelectDf:
      return select(card, 0x01, step.argument, false);
    case Verb::kSelectEf:
      return select(card, 0x02, step.argument, false);
    default:
      return select(card, 0x00, step.argument, false);
  }
}

bool selects(const Step& step) { return step.verb <= Verb::kSelectEf; }

/// Reads until the card says that the file ends, or has given what the step wants.
Answer read_binary(Card& card, const Step& step) {
  const std::size_t at_once = step.extended && !card.is_t0() ? kExtended : kShortest;
  const std::size_t end = step.count > 0 ? step.first + step.count : kEndOfOffsets;
  Answer all{{}, status::kOk};
  bool was_short = false;  // the last part: a file's last is, and what comes behind is an error
  std::size_t offset = step.first;
  while (offset < end && offset < kEndOfOffsets) {
    const std::size_t expected = std::min(at_once, end - offset);
    const Answer part = send(card, {kReadBinary,
                                    static_cast<unsigned char>(offset >> 8),
                                    static_cast<unsigned char>(offset),
                                    {},
                                    expected});
    if (!part.ok()) {
      const bool at_end = was_short || (part.status == status::kBeyondFile && step.count == 0);
      if (!at_end) all.status = part.status;
      break;
    }
    all.data += part.data;
    if (part.data.empty() || part.status == status::kEndOfFile) break;
    was_short = part.data.size() < expected;
    offset += part.data.size();
  }
  return all;
}

/// Of several records those that the card does not have are empty.
Answer read_records(Card& card, const Step& step, Values& values) {
  static constexpr unsigned char kByNumber = 0x04;
  Answer answer{{}, status::kOk};
  for (unsigned number = step.first; number < step.first + step.count; ++number) {
    answer =
        send(card, {kReadRecord, static_cast<unsigned char>(number), kByNumber, {}, kShortest});
    if (!answer.ok() && (step.count == 1 || answer.status != status::kNoRecord)) return answer;
    values.push_back(answer.ok() ? answer.data : "");
  }
  return {{}, status::kOk};
}

/// One of the two buffers of the selected container: behind its length, low byte first, it stands.
Answer read_buffer(Card& card, char buffer) {
  static constexpr std::size_t kLengthSize = 2;
  static constexpr std::size_t kAtOnce = 240;  // bytes, which every card can give
  static constexpr unsigned char kProprietary = 0x80;
  Answer all{{}, status::kOk};
  std::size_t end = kLengthSize;
  while (all.data.size() < end) {
    const std::size_t offset = all.data.size();
    const std::size_t expected = std::min(kAtOnce, end - offset);
    const Answer part = send(card, {kReadBuffer,
                                    static_cast<unsigned char>(offset >> 8),
                                    static_cast<unsigned char>(offset),
                                    {buffer, static_cast<char>(expected)},
                                    expected,
                                    kProprietary});
    if (!part.ok() || part.data.empty()) return {{}, part.ok() ? status::kNotFound : part.status};
    all.data += part.data;
    if (all.data.size() < kLengthSize) continue;
    end = kLengthSize + static_cast<unsigned char>(all.data[0]) +
          std::size_t{256} * static_cast<unsigned char>(all.data[1]);
  }
  all.data.resize(end);  // a card may have given more than it was asked for
  all.data.erase(0, kLengthSize);
  return all;
}

Answer read_container(Card& card, const Step& step) {
  static constexpr char kTags = 1;
  static constexpr char kValues = 2;
  Answer answer = read_buffer(card, kTags);
  if (!answer.ok()) return answer;
  Answer values = read_buffer(card, kValues);
  if (!values.ok()) return values;
  try {
    answer.data = join_buffers(answer.data, values.data);
  } catch (const CardDataError& error) {
    throw Failure(failures::kBadCardData, step.result + " - " + error.what());
  }
  return answer;
}

/// Some cards give an object with its tag and length, some its value alone: here always the latter.
void unwrap(std::string& data, const std::string& tag) {
  try {
    std::string_view left = data;
    const auto object = next_ber_object(left);
    if (object && left.empty() && object->tag == parse_ber_tag(hexadecimal(tag)))
      data = std::string(object->value);
  } catch (const CardDataError&) {
    return;  // no object: a value
  }
}

Answer get_data(Card& card, const Step& step) {
  const std::size_t expected = step.extended ? kExtended : kShortest;
  Command command{kGetData, 0, 0, {}, expected};
  if (step.verb == Verb::kGetObject) {
    static constexpr char kTagList = '\x5C';
    command = {kGetObject, 0x3F, 0xFF, {}, expected};
    command.data = std::string{kTagList, static_cast<char>(step.argument.size())} + step.argument;
  } else {
    command.p2 = static_cast<unsigned char>(step.argument.back());
    if (step.argument.size() > 1) command.p1 = static_cast<unsigned char>(step.argument[0]);
  }
  Answer answer = send(card, command);
  if (answer.ok()) unwrap(answer.data, step.argument);
  return answer;
}

Answer take(Card& card, const Step& step, Values& values) {
  if (selects(step)) return select(card, step);
  if (step.verb == Verb::kReadRecords) return read_records(card, step, values);
  Answer answer = step.verb == Verb::kReadBinary   ? read_binary(card, step)
                  : step.verb == Verb::kReadBuffer ? read_container(card, step)
                                                   : get_data(card, step);
  if (answer.ok()) values.push_back(answer.data);
  return answer;
}

/// What the steps have read, one entry each, none for what is not on the card.
std::vector<Values> take_all(Card& card, const std::vector<Step>& steps) {
  std::vector<Values> all;
  bool skip = false;  // after a select that has failed: what follows would read another file
  for (const Step& step : steps) {
    all.emplace_back();
    if (selects(step)) skip = false;
    if (skip) continue;
    const Answer answer = take(card, step, all.back());
    if (answer.ok()) continue;
    if (!step.optional || !answer.not_there()) refuse(step, answer.status);
    skip = selects(step);
  }
  return all;
}

std::string_view range(std::string_view value, const Cut& cut) {
  if (cut.first + cut.count > value.size()) throw CardDataError("数据过短");
  return value.substr(cut.first, cut.count > 0 ? cut.count : std::string_view::npos);
}

std::optional<std::string_view> apply(const Cut& cut, std::string_view value) {
  switch (cut.kind) {
    case Cut::Kind::kRange:
      return range(value, cut);
    case Cut::Kind::kBer:
      return find_ber(value, cut.path);
    case Cut::Kind::kSimple:
    case Cut::Kind::kChained:
      return find_simple(value, static_cast<unsigned char>(cut.first),
                         cut.kind == Cut::Kind::kSimple ? LongLength::kTwoBytes : LongLength::kSum);
    case Cut::Kind::kRecord:  // chosen before
      break;
  }
  return value;
}

std::string_view strip(std::string_view value, const std::string& bytes) {
  const std::size_t first = value.find_first_not_of(bytes);
  if (first == std::string_view::npos) return {};
  return value.substr(first, value.find_last_not_of(bytes) - first + 1);
}

/// The member's text; empty when the card lacks it.
std::string member_text(const Member& member, const Step& step, const Values& values) {
  if (values.empty()) return {};
  const bool by_record = step.verb == Verb::kReadRecords;
  std::optional<std::string_view> value = values[by_record ? member.cuts[0].first - step.first : 0];
  if (value->empty()) return {};
  for (const Cut& cut : member.cuts)
    if (value) value = apply(cut, *value);
  if (!value) return {};
  const std::string text = decode(strip(*value, member.strip), member.decoding);
  return member.date == DateOrder::kNone ? text : to_iso_date(text, member.date);
}

}  // namespace

bool is_of_kind(const Profile& profile, Card& card, std::string_view atr) {
  return profile.fits_atr(atr) &&
         (profile.aid.empty() || select(card, 0x04, profile.aid, true).ok());
}

void read_card(const CardFunction& function, Card& card, cJSON* data) {
  const std::vector<Values> all = take_all(card, function.steps);
  for (const Member& member : function.members) {
    std::string text;
    try {
      text = member_text(member, function.steps[member.step], all[member.step]);
      if (text.empty() && member.required) throw CardDataError("缺少");
    } catch (const CardDataError& error) {
      throw Failure(failures::kBadCardData, member.name + " - " + error.what());
    }
    add_text(data, member.name.c_str(), text);
  }
}
