#include "readers/pcsc/step_syntax.h"

#include "readers/pcsc/words.h"
#include "util/text/hex.h"

namespace {

using Verb = Step::Verb;

constexpr unsigned kLargestOffset = 0x7FFF;  // what a READ BINARY can name
constexpr unsigned kLastRecord = 0xFE;
constexpr std::size_t kLongestAid = 16;
constexpr std::size_t kLongestAtr = 33;

void require_word(Words& words, std::string_view word) {
  if (!words.take(word))
    throw Mistake("此处应为“" + std::string(word) + "”，却是“" + std::string(words.peek()) + "”");
}

void parse_select(Words& words, Step& step) {
  struct Way {
    const char* word;
    Verb verb;
    std::size_t least, most;
  };
  static constexpr Way kWays[] = {{"aid", Verb::kSelectAid, 5, kLongestAid},
                                  {"path", Verb::kSelectPath, 2, 16},
                                  {"file", Verb::kSelectFile, 2, 2},
                                  {"df", Verb::kSelectDf, 2, 2},
                                  {"ef", Verb::kSelectEf, 2, 2}};
  const std::string_view word = words.next();
  for (const Way& way : kWays) {
    if (word != way.word) continue;
    step.verb = way.verb;
    step.argument = words.bytes(way.word, way.least, way.most);
    if (way.verb == Verb::kSelectPath && step.argument.size() % 2 != 0)
      throw Mistake("path由若干文件标识组成，每个两字节");
    return;
  }
  throw Mistake("select之后应为aid、path、file、df或ef，却是“" + std::string(word) + "”");
}

void parse_read(Words& words, Step& step) {
  const std::string_view word = words.next();
  if (word == "binary") {
    step.verb = Verb::kReadBinary;
    step.first = words.optional_number("起始位置", 0, kLargestOffset).value_or(0);
    step.count = words.optional_number("长度", 1, kLargestOffset + 1).value_or(0);
  } else if (word == "buffer") {
    step.verb = Verb::kReadBuffer;
  } else if (word == "record" || word == "records") {
    step.verb = Verb::kReadRecords;
    step.first = words.number("记录号", 1, kLastRecord);
    step.count = 1;
    if (words.take("to"))
      step.count = words.number("末记录号", step.first, kLastRecord) - step.first + 1;
  } else {
    throw Mistake("read之后应为binary、record或buffer，却是“" + std::string(word) + "”");
  }
}

void parse_get(Words& words, Step& step) {
  const std::string_view word = words.next();
  if (word != "data" && word != "object")
    throw Mistake("get之后应为data或object，却是“" + std::string(word) + "”");
  step.verb = word == "data" ? Verb::kGetData : Verb::kGetObject;
  step.argument = words.bytes("标签", 1, word == "data" ? 2 : 4);
}

}  // namespace

Step parse_step(std::string_view value) {
  Words words(value);
  Step step;
  step.text = value;
  const std::string_view word = words.next();
  const bool selects = word == "select";
  if (selects) {
    parse_select(words, step);
  } else if (word == "read") {
    parse_read(words, step);
  } else if (word == "get") {
    parse_get(words, step);
  } else {
    throw Mistake("步骤应以select、read或get开头，却是“" + std::string(word) + "”");
  }
  if (!selects) {
    const bool may_extend = step.verb != Verb::kReadRecords && step.verb != Verb::kReadBuffer;
    step.extended = may_extend && words.take("extended");
    require_word(words, "as");
    step.result = words.next();
    if (step.result.empty()) throw Mistake("as之后缺少名称");
  }
  step.optional = words.take("optional");
  if (!words.empty()) throw Mistake("多余的“" + std::string(words.peek()) + "”，请删除");
  return step;
}

AtrPattern parse_atr(std::string_view value) {
  AtrPattern atr;
  std::string digits;
  std::string mask;
  for (const char c : value) {
    if (c == ' ' || c == '\t') continue;
    if (atr.open) throw Mistake("“*”只能在末尾");
    if (c == '*') {
      atr.open = true;
    } else if (c == '?' || hex_value(c) >= 0) {
      digits += c == '?' ? '0' : c;
      mask += c == '?' ? '0' : 'F';
    } else {
      throw Mistake(std::string("“") + c + "”不是十六进制数字，也不是“?”或“*”");
    }
  }
  atr.value = bytes_of_hex(digits).value_or("");
  atr.mask = bytes_of_hex(mask).value_or("");
  if (atr.value.empty() || atr.value.size() > kLongestAtr)
    throw Mistake("ATR应为1至33个字节，每字节两位");
  return atr;
}
