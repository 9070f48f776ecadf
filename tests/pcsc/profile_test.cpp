// The profile file's syntax, and the readers of a card's data, without a reader.

#include <gtest/gtest.h>

#include <algorithm>

#include "readers/pcsc/card_data_error.h"
#include "readers/pcsc/decoding.h"
#include "readers/pcsc/profile_file.h"
#include "readers/pcsc/step_syntax.h"
#include "readers/pcsc/tlv.h"
#include "tests/pcsc/pcsc_test.h"

namespace {

TEST(ProfileTest, EachMistakeIsNamedByLineSectionKeyAndCure) {
  const std::string card = "[c]\natr=3B\n[c f]\n";  // 3 lines
  const std::string read = card + "step=read binary as x\nstep=read records 2 to 4 as r\n";  // 5
  std::string many = "[c]\natr=3B\n";
  for (char number = '0'; number < '6'; ++number)
    many += "[c " + std::string(90, 'f') + number + "]\nstep=read binary as x\nmember.a=x hex\n";
  const std::pair<std::string, std::string> rows[] = {
      {many, "第20行：功能名共超过511个字节，请减少或缩短"},
      {"a=1", "第1行 a：之前应有节，如[my-card]"},
      {"[PCSC]\ntransmit=on", "第2行 [PCSC] transmit：应为yes或no"},
      {"[c", "第1行 [c]：节名应写作[名称]，之后不可有其他内容"},
      {"[c]\naid=A000\n", "第2行 [c] aid：aid应为5至16个字节的十六进制数"},
      {"[c]\naid=A000000001 x", "第2行 [c] aid：多余的“x”，请删除"},
      {"[c]\natr=3B 0", "第2行 [c] atr：ATR应为1至33个字节，每字节两位"},
      {"[c]\natr=3B G0", "第2行 [c] atr：“G”不是十六进制数字，也不是“?”或“*”"},
      {"[c]\nname=C", "第2行 [c]：缺少atr或aid，无从识别卡片"},
      {"[c]\nlabel=C", "第2行 [c] label：未知的键，可用：name、atr、aid"},
      {"[c f]\nstep=read", "第1行 [c f]：之前应为[c]及其功能的节"},
      {card + "[c]", "第4行 [c]：该节已出现过，请合并"},
      {card + "step", "第4行 [c f] step：缺少“=”；注释以“;”开头"},
      {card + "step=", "第4行 [c f] step：缺少取值"},
      {card + "[c getconfig]", "第4行 [c getconfig]：功能名应为小写字母"},
      {card + "step=verify 1", "第4行 [c f] step：步骤应以select、read或get开头，却是“verify”"},
      {card + "step=select it 1",
       "第4行 [c f] step：select之后应为aid、path、file、df或ef，却是“it”"},
      {card + "step=select ef 50001",
       "第4行 [c f] step：ef应为2至2个字节的十六进制数，却是“50001”"},
      {card + "step=select path 3F00 50", "第4行 [c f] step：path由若干文件标识组成，每个两字节"},
      {card + "step=read record 0 as x", "第4行 [c f] step：记录号“0”无效，应为1至254的整数"},
      {card + "step=read binary 32768 as x",
       "第4行 [c f] step：起始位置“32768”无效，应为0至32767的整数"},
      {card + "step=read binary", "第4行 [c f] step：此处应为“as”，却是“”"},
      {card + "step=get data 5FC102 as x", "第4行 [c f] step：标签应为1至2个字节的十六进制数"},
      {read + "step=read binary as x", "第6行 [c f] step：名称“x”已用过，请另取"},
      {read, "第5行 [c f]：缺少member"},
      {read + "member.a=y ascii", "第6行 [c f] member.a：之前没有以“as y”结尾的step"},
      {read + "member.a=x asci", "第6行 [c f] member.a：解码方式“asci”无效，可用：ascii, latin1"},
      {read + "member.a=x ber 5F/30 hex", "第6行 [c f] member.a：“5F”不是BER标签，应如5F2D或53/30"},
      {read + "member.a=x hex date", "第6行 [c f] member.a：日期顺序“”无效，可用：ymd, dmy, mdy"},
      {read + "member.a=r hex",
       "第6行 [c f] member.a：该步骤读多条记录，请在“r”之后写record和记录号"},
      {read + "member.a=r record 5 hex", "第6行 [c f] member.a：记录号“5”无效，应为2至4的整数"},
      {read + "member.a=x hex\nmember.a=x hex", "第7行 [c f] member.a：该键已出现过，请删除其一"},
      {read + "members=x hex", "第6行 [c f] members：未知的键，可用：step、member.名称"},
  };
  for (const auto& [text, mistake] : rows) {
    std::vector<std::string> mistakes;
    parse_profiles(text, mistakes);
    const auto is_it = [&wanted = mistake](const std::string& found) {
      return found.rfind(wanted, 0) == 0;
    };
    EXPECT_TRUE(std::any_of(mistakes.begin(), mistakes.end(), is_it))
        << text << "\n"
        << testing::PrintToString(mistakes);
  }
}

TEST(ProfileTest, LimitsMayBeReachedAndAByteOrderMarkStand) {
  std::string text = "\xEF\xBB\xBF[c]\natr=3B\n";
  for (const char last : {'1', '2', '3', '4', '5'})  // with "pcsc.readers" 511 bytes
    text += "[c " + std::string(last < '5' ? 98 : 96, 'f') + last +
            "]\nstep=read binary 32767 as x\nstep=read record 254 as y\nmember.a=x hex\n";
  std::vector<std::string> mistakes;
  parse_profiles(text, mistakes);
  EXPECT_EQ(std::vector<std::string>(), mistakes);
}

TEST(ProfileTest, PatternOfAnAtrMayLeaveDigitsAndTheEndOpen) {
  const std::tuple<const char*, const char*, bool> rows[] = {
      {"3B 9? ?8 aB", "3B 90 F8 AB", true}, {"3B 9? ?8 AB", "3B 90 F9 AB", false},
      {"3B 90", "3B 90 00", false},         {"3B 90 00*", "3B 90", false},
      {"3B 90 *", "3B 90 00", true},        {"3B 90 *", "3B 90", true}};
  for (const auto& [pattern, atr, fits] : rows) {
    Profile profile;
    profile.atrs = {parse_atr("FF"), parse_atr(pattern)};
    EXPECT_EQ(fits, profile.fits_atr(bytes(atr))) << pattern;
  }
}

TEST(ProfileTest, BytesAreDecodedAsTheProfileSays) {
  struct Row {
    Decoding decoding;
    const char* digits;
    const char* text;  // null: no such text
  };
  const Row rows[] = {
      {Decoding::kAscii, "20 41 00 20", "A"},
      {Decoding::kAscii, "41 E9", nullptr},
      {Decoding::kLatin1, "E4 DF", "äß"},
      {Decoding::kUtf8, "E5 BC A0", "张"},
      {Decoding::kUtf8, "E5 BC", nullptr},
      {Decoding::kUtf16be, "5F20 D83D DE00", "张😀"},
      {Decoding::kUtf16be, "5F20 D83D", nullptr},
      {Decoding::kGbk, "D5C5", "张"},
      {Decoding::kHex, "00 FF", "00FF"},
      {Decoding::kBcd, "12 3F FF", "123"},
      {Decoding::kBcd, "1A", nullptr},
      {Decoding::kNumber, "01 00", "256"},
      {Decoding::kNumber, "FFFFFFFFFFFFFFFF", "18446744073709551615"},
      {Decoding::kNumber, "010000000000000000", nullptr},
      {Decoding::kNumber, "", ""},
  };
  for (const Row& row : rows) {
    if (row.text == nullptr)
      EXPECT_THROW(decode(bytes(row.digits), row.decoding), CardDataError) << row.digits;
    else
      EXPECT_EQ(row.text, decode(bytes(row.digits), row.decoding)) << row.digits;
  }
}

TEST(ProfileTest, DatesOfEveryFormBecomeOneForm) {
  const std::tuple<const char*, DateOrder, const char*> rows[] = {
      {"19800301", DateOrder::kYmd, "1980-03-01"},
      {"01031980", DateOrder::kDmy, "1980-03-01"},
      {"03311980", DateOrder::kMdy, "1980-03-31"},
      {"1.3.1980", DateOrder::kDmy, "1980-03-01"},
      {"1980/03/01", DateOrder::kYmd, "1980-03-01"},
      {"01 MARS 1980", DateOrder::kDmy, "1980-03-01"},
      {"01.MÄR.1980", DateOrder::kDmy, "1980-03-01"},
      {"07 JUIL 1980", DateOrder::kDmy, "1980-07-07"},
      {"07 JUIN  1980", DateOrder::kDmy, "1980-06-07"},
      {"1980", DateOrder::kDmy, "1980"},
      {"32.01.1980", DateOrder::kDmy, "32.01.1980"},
      {"01.13.1980", DateOrder::kDmy, "01.13.1980"},
      {"TÄHTAJATU", DateOrder::kDmy, "TÄHTAJATU"},
      {"", DateOrder::kDmy, ""},
  };
  for (const auto& [text, order, date] : rows) EXPECT_EQ(date, to_iso_date(text, order));
}

TEST(ProfileTest, ObjectsAreFoundAndLyingLengthsNamed) {
  using Path = std::vector<std::uint32_t>;
  const std::string nested = bytes("0000 53 0A FF 30 02 AAAA 5F2D 81 01 BB 30 01 CC");
  EXPECT_EQ(bytes("AAAA"), find_ber(nested, Path{0x53, 0x30}));
  EXPECT_EQ(bytes("BB"), find_ber(nested, Path{0x53, 0x5F2D}));
  EXPECT_EQ(bytes("CC"), find_ber(nested, Path{0x30}));
  EXPECT_EQ(std::nullopt, find_ber(nested, Path{0x53, 0x31}));
  const std::string long_value(300, 'v');
  const std::string chained = bytes("01 01 41 07 FF 2D") + long_value + bytes("09 01 42 0000");
  const std::string simple = bytes("01 01 41 07 FF 012C") + long_value + bytes("09 01 42");
  EXPECT_EQ(long_value, find_simple(chained, 7, LongLength::kSum));
  EXPECT_EQ("B", find_simple(chained, 9, LongLength::kSum));
  EXPECT_EQ(std::nullopt, find_simple(chained, 8, LongLength::kSum));
  EXPECT_EQ(long_value, find_simple(simple, 7, LongLength::kTwoBytes));
  EXPECT_EQ("B", find_simple(simple, 9, LongLength::kTwoBytes));
  for (const char* lie :
       {"30 02 AA", "30", "5F", "1FFFFFFFFF 01 AA", "30 80 0000", "30 85 0000000001 AA"})
    EXPECT_THROW(find_ber(bytes(lie), Path{0x31}), CardDataError) << lie;
  EXPECT_EQ(bytes("30 02") + "AB" + bytes("70 FF 0101") + std::string(257, 'v') + bytes("FE 00"),
            join_buffers(bytes("30 02 70 FF 0101 FE 00"), "AB" + std::string(257, 'v')));
  for (const char* lie : {"30", "30 03", "30 FF 01", "30 FF FF00"})
    EXPECT_THROW(join_buffers(bytes(lie), "AB"), CardDataError) << lie;
  for (const char* lie : {"01 02 AA", "01", "01 FF 00", "01 FF FF"})
    EXPECT_THROW(find_simple(bytes(lie), 7, LongLength::kSum), CardDataError) << lie;
}

}  // namespace
