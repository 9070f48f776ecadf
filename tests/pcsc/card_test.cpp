// Cards as the shipped profiles describe them, with invented people, through pcscd.

#include "tests/pcsc/pcsc_test.h"
#include "tests/support/service_test.h"
#include "util/text/hex.h"

namespace {

std::string ok(const std::string& data) {
  return R"({"result":"true","fid":"readcardbas","data":{)" + data + "}}";
}

/// An object with a tag of one byte and the length in one byte.
std::string object(unsigned char tag, const std::string& value) {
  return std::string{static_cast<char>(tag), static_cast<char>(value.size())} + value;
}

IsoCard belgian_card() {
  IsoCard card;
  const std::string long_place = "Sint-Jans-" + std::string(250, 'a');
  card.files["aid A000000177504B43532D3135"];
  card.files["3F00/DF01/4031"] =
      object(0, "12") + object(1, "592000000001") + object(3, "01.02.2020") +
      object(4, "01.02.2030") + object(5, "Brüssel") + object(6, "80010100123") +
      object(7, "Peeters") + object(8, "Zoë Anne") + object(10, "Belg") + bytes("0B FF 05") +
      long_place + object(12, "01 MÄR 1980") + object(13, "V") + bytes("0000");
  card.files["3F00/DF01/4033"] =
      object(1, "Musterstraße 1") + object(2, "1000") + object(3, "Brüssel");
  return card;
}

IsoCard estonian_card() {
  IsoCard card;
  const std::string df = "aid A000000077010800070000FE00000100/5000/";
  card.files = {
      {df + "5001", "MÄNNIK"},    {df + "5002", "MARI-LIIS"},      {df + "5003", "N"},
      {df + "5004", "EST"},       {df + "5005", "01 01 1980 EST"}, {df + "5006", "48001010000"},
      {df + "5007", "AS0000001"}, {df + "5008", "31 12 2028"}};
  card.files["A000000077010800070000FE00000100"];
  return card;
}

IsoCard older_estonian_card() {
  IsoCard card;
  card.record_files["3F00/EEEE/5044"] = {"M\xC4NNI\x8E", "MARI-LIIS  ", " ",           "N",
                                         "EST",          "01.01.1980",  "48001010000", "A0000001",
                                         "T\xC4HTAJATU", "EESTI / EST"};
  return card;
}

IsoCard openpgp_card() {
  IsoCard card;
  card.files["aid D27600012401"];
  card.objects["0065"] =
      bytes("65 1D 5B 12") + "Mustermann<<\xC4nne " + bytes("00 5F2D 02 6465 5F35 01 32");
  card.objects["004F"] = bytes("D2760001240103040005000000010000");
  return card;
}

IsoCard piv_card() {
  IsoCard card;
  card.files["aid A00000030800001000"];
  card.objects["5FC102"] = bytes("53 82 0242 30 19") + std::string(25, '\x5A') + bytes("34 10") +
                           std::string(16, '\x11') + object(0x35, "20301231") +
                           bytes("3E 82 0205") + std::string(0x205, 's') + bytes("FE 00");
  return card;
}

IsoCard cac() {
  IsoCard card;
  card.record_files = {{"aid A000000116DB00",
                        {bytes("0200 F015"), bytes("1500 A000000116 2101") + "fourteen bytes"}},
                       {"aid A0000001163000",
                        {bytes("0E00 3019 3EFF0102 3410 3508 FE00 3D00"),
                         bytes("3202") + std::string(25, '\x5A') + std::string(0x201, 's') +
                             std::string(16, '\x11') + "20301231"}}};
  return card;
}

struct ShippedCard {
  const char* profile;
  IsoCard card;
  std::string atr;  // of its own; empty: any
  std::string reply;
};

std::vector<ShippedCard> shipped_cards() {
  const std::string older_atr = bytes("3BFE1800008031FE454573744549442076657220312E30A8");
  return {
      {"Belgian eID", belgian_card(), "",
       ok(R"("name":"Peeters","given":"Zo\u00eb Anne","sex":"V","nation":"Belg","birth":"1980-03-01",)"
          R"("birthplace":"Sint-Jans-)" +
          std::string(250, 'a') +
          R"(","idnumber":"80010100123","cardnumber":"592000000001","issuer":"Brüssel",)"
          R"("issued":"2020-02-01","expires":"2030-02-01","address":"Musterstra\u00dfe 1",)"
          R"("zip":"1000","town":"Brüssel")")},
      {"Estonian ID card (2018)", estonian_card(), "",
       ok(R"("name":"M\u00c4NNIK","given":"MARI-LIIS","sex":"N","nation":"EST",)"
          R"("birth":"1980-01-01","birthplace":"EST","idnumber":"48001010000",)"
          R"("cardnumber":"AS0000001","expires":"2028-12-31")")},
      {"Estonian ID card (before 2018)", older_estonian_card(), older_atr,
       ok(R"("name":"M\u00c4NNI\u017d","given":"MARI-LIIS","given2":"","sex":"N","nation":"EST",)"
          R"("birth":"1980-01-01","birthplace":"EESTI / EST","idnumber":"48001010000",)"
          R"("cardnumber":"A0000001","issued":"","expires":"T\u00c4HTAJATU")")},
      {"OpenPGP card", openpgp_card(), "",
       ok(R"("name":"Mustermann<<\u00c4nne","language":"de","sex":"2","login":"",)"
          R"("issuer":"0005","cardnumber":"00000001")")},
      {"PIV card", piv_card(), "",
       ok(R"("fascn":")" + hexadecimal(std::string(25, '\x5A')) + R"(","idnumber":")" +
          hexadecimal(std::string(16, '\x11')) + R"(","expires":"2030-12-31")")},
      {"CAC", cac(), "",
       ok(R"("fascn":")" + hexadecimal(std::string(25, '\x5A')) + R"(","idnumber":")" +
          hexadecimal(std::string(16, '\x11')) + R"(","expires":"2030-12-31","cardnumber":")" +
          hexadecimal("fourteen bytes") + "\"")},
  };
}

using CardTest = PcscTest;

TEST_F(CardTest, EachShippedProfileReadsItsCardOverEitherProtocol) {
  for (const bool is_t0 : {false, true}) {
    for (ShippedCard& shipped : shipped_cards()) {
      shipped.card.is_t0 = shipped.card.gives_exactly = is_t0;
      insert(!shipped.atr.empty() ? shipped.atr : is_t0 ? kT0Atr : kT1Atr, shipped.card);
      EXPECT_EQ(shipped.reply, library.call("readcardbas", R"("itype":3,"bae140":"3")"));
      const std::string readers = library.call("pcsc.readers");
      EXPECT_NE(readers.find("\"profile\":\"" + std::string(shipped.profile) + "\"}"),
                std::string::npos)
          << readers;
    }
  }
}

TEST_F(CardTest, OpenPgpCardSaysTheSameToAnotherProgram) {
  IsoCard card = openpgp_card();
  insert(kT1Atr, card);
  const std::string said = run_program({"openpgp-tool", "-C", "-U"}).output;
  for (const char* line : {"Serial number:   00000001\n", "Name:            Mustermann \xC4nne",
                           "Language:        de\n", "Gender:          female\n"})
    EXPECT_NE(std::string::npos, said.find(line)) << said;
}

TEST_F(CardTest, ReaderIsChosenByAPartOfItsName) {
  IsoCard card = openpgp_card();
  insert(kT1Atr, card);
  expect_reply(ok("").substr(0, 30), library.call("readcardbas", R"("reader":"PCD 00 00")"));
  expect_reply(failed("1002"), library.call("readcardbas", R"("reader":"PCD 00 01")"));
  expect_reply(failed("1001"), library.call("readcardbas", R"("reader":"other")"));
  expect_reply(failed("2003"), library.call("readcardbas", R"("reader":1)"));
}

TEST_F(CardTest, FilesLongerThanAnAnswerAreReadInEachWay) {
  std::string content;
  for (int number = 0; number < 128; ++number) content += std::to_string(1000 + number);
  const auto profiles = [](const std::string& step) {
    return "[long]\natr=3B*\n[long readcardbas]\nstep=select path 3F00 0001\nstep=" + step +
           " as file\nmember.all=file ascii\n";
  };
  IsoCard card;
  card.files["3F00/0001"] = content;
  card.objects["0101"] = content;
  for (const std::string& atr : {kT1Atr, kT0Atr}) {
    for (const std::size_t most : {std::size_t{256}, std::size_t{100}}) {
      card.is_t0 = card.gives_exactly = atr == kT0Atr;
      card.wants_information = most == 100;
      card.knows_extended = !card.is_t0;
      card.most = most;
      insert(atr, card);
      for (const char* step : {"read binary", "read binary extended", "get data 0101"}) {
        library.write_profiles(profiles(step));
        EXPECT_EQ(ok("\"all\":\"" + content + "\""), library.call("readcardbas")) << step << most;
      }
      library.write_profiles(profiles("read binary 4 0x104"));
      EXPECT_EQ(ok("\"all\":\"" + content.substr(4, 260) + "\""), library.call("readcardbas"));
    }
  }
  card.files["3F00/0001"] = content + content;
  library.write_profiles(profiles("read binary"));
  expect_reply(failed("3002"), library.call("readcardbas"));
}

TEST_F(CardTest, CardOfAnotherMakeIsRead) {
  library.write_profiles(
      "[vpicc]\natr=3B*\n[vpicc readcardbas]\nstep=select path 5000 5001\n"
      "step=read binary as file\nstep=read binary 4 300 extended as part\n"
      "step=select ef 5002\nstep=read records 1 to 3 as records\n"
      "step=select ef 5003 optional\nstep=read binary as missing\n"
      "member.end=file bytes 590 ascii\nmember.part=part bytes 290 ascii\n"
      "member.first=records record 1 ascii\nmember.second=records record 2 ascii\n"
      "member.third=records record 3 ascii\nmember.missing=missing ascii\n");
  const ChildProcess card(Launch{"/usr/bin/python3", {"python3", VPICC_CARD}});
  wait_for_card();
  EXPECT_EQ(ok(R"("end":"4701480149","part":"7300740075","first":"first","second":"second",)"
               R"("third":"","missing":"")"),
            library.call("readcardbas"));
}

TEST_F(CardTest, WorkedExampleOfTheManualIsTrue) {
  library.write_profiles(
      "[library-card]\nname=Town library\natr=3B 68 00 00 *\n[library-card readcardbas]\n"
      "step=select path 3F00 7F10 2001\nstep=read binary as reader\n"
      "member.name=reader ber 70/5F20 latin1 required\n"
      "member.birth=reader ber 70/5F2B bcd date dmy\n");
  IsoCard card;
  card.files["3F00/7F10/2001"] = bytes("70 14 5F20 0A 4C69204D656920202020 5F2B 04 24121990");
  insert(bytes("3B 68 00 00 0102030405060708"), card);
  EXPECT_EQ(ok(R"("name":"Li Mei","birth":"1990-12-24")"), library.call("readcardbas"));
  EXPECT_EQ((std::vector<std::string>{"00A4080C063F007F102001", "00B0000000", "00B0001600"}),
            std::vector<std::string>(card.log.end() - 3, card.log.end()));
}

TEST_F(CardTest, PagesSendCommandsOfTheirOwnOnlyWhereTheFileAllowsIt) {
  const std::string commands =
      R"("commands":["00A4040006D2760001240100","00CA004F00","00b0000000"])";
  IsoCard card = openpgp_card();
  insert(kT1Atr, card);
  EXPECT_EQ("pcsc.readers\nreadcardbas\n", library.functions());
  EXPECT_NE(library.call("pcsc.transmit", commands).find("\"errcode\":\"2001\""),
            std::string::npos);
  library.write_profiles("[PCSC]\ntransmit=yes\n");
  EXPECT_EQ("pcsc.readers\npcsc.transmit\n", library.functions());
  EXPECT_EQ(
      R"({"result":"true","fid":"pcsc.transmit","data":{"reader":"Virtual PCD 00 00",)"
      R"("atr":"3B800181","answers":["6F0284009000","D27600012401030400050000000100009000","9000"]}})",
      library.call("pcsc.transmit", commands));
  std::string many = R"("commands":["00B00000")";
  for (int count = 1; count < 65; ++count) many += R"(,"00B00000")";
  many += ']';
  for (const char* wrong : {"", R"("commands":[])", R"("commands":["00A4"])", R"("commands":"00")",
                            R"("commands":["00A4040G"])", R"("commands":[1])", many.c_str()})
    EXPECT_NE(library.call("pcsc.transmit", wrong).find("\"errcode\":\"2003\""), std::string::npos);
}

}  // namespace
