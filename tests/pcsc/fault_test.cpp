// Everything that goes wrong between the library and the card: one clear failure, and the next read
// succeeds.

#include <dlfcn.h>
#include <winscard.h>

#include <csignal>

#include "tests/pcsc/pcsc_test.h"

namespace {

/// Called before each of the functions below that this process, with the library in it, calls: the
/// function's name. A result other than success is returned in the function's place.
std::function<LONG(std::string_view function)> before_pcsc;

template <typename Function, typename... Arguments>
LONG pass(const char* name, Function* /*for its type*/, Arguments... arguments) {
  const LONG result = before_pcsc ? before_pcsc(name) : SCARD_S_SUCCESS;
  if (result != SCARD_S_SUCCESS) return result;
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

// The library finds these before those of libpcsclite, since they are the program's.
#define PASS_ON(name, parameters, ...) \
  LONG name parameters { return pass(#name, name, __VA_ARGS__); }

PASS_ON(SCardEstablishContext, (DWORD a, LPCVOID b, LPCVOID c, LPSCARDCONTEXT d), a, b, c, d)
PASS_ON(SCardListReaders, (SCARDCONTEXT a, LPCSTR b, LPSTR c, LPDWORD d), a, b, c, d)
PASS_ON(SCardGetStatusChange, (SCARDCONTEXT a, DWORD b, SCARD_READERSTATE* c, DWORD d), a, b, c, d)
PASS_ON(SCardConnect, (SCARDCONTEXT a, LPCSTR b, DWORD c, DWORD d, LPSCARDHANDLE e, LPDWORD f), a,
        b, c, d, e, f)
PASS_ON(SCardBeginTransaction, (SCARDHANDLE a), a)
PASS_ON(SCardTransmit,
        (SCARDHANDLE a, const SCARD_IO_REQUEST* b, LPCBYTE c, DWORD d, SCARD_IO_REQUEST* e,
         LPBYTE f, LPDWORD g),
        a, b, c, d, e, f, g)

namespace {

constexpr char kProfile[] =
    "[demo]\natr=3B*\n[demo readcardbas]\nstep=select path 3F00 0001 optional\nstep=read binary as "
    "file\n"
    "member.name=file ber 5F2D utf-8 required\n";

constexpr char kGoodReply[] = R"({"result":"true","fid":"readcardbas","data":{"name":"Li"}})";

class FaultTest : public PcscTest {
 protected:
  FaultTest() {
    library.write_profiles(kProfile);
    good.files["3F00/0001"] = bytes("5F2D 02") + "Li";
  }

  void TearDown() override { before_pcsc = nullptr; }

  /// Reads a good card, freshly put in.
  void expect_next_read_succeeds() {
    insert(kT1Atr, good);
    expect_reply(kGoodReply, library.call("readcardbas"));
    pull();
  }

  IsoCard good;
};

/// Another program's connection to the reader.
struct OtherProgram {
  explicit OtherProgram(DWORD share) {
    SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context);
    EXPECT_EQ(SCARD_S_SUCCESS,
              SCardConnect(context, "Virtual PCD 00 00", share,
                           share == SCARD_SHARE_DIRECT ? 0 : SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1,
                           &card, &protocol));
  }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;
  ~OtherProgram() {
    SCardDisconnect(card, SCARD_LEAVE_CARD);
    SCardReleaseContext(context);
  }
  /// Ends as a program does that is killed with a command in hand: pcscd then resets the card.
  void die() const { SCardDisconnect(card, SCARD_RESET_CARD); }
  void reset_card() {
    EXPECT_EQ(SCARD_S_SUCCESS,
              SCardReconnect(card, SCARD_SHARE_SHARED, protocol, SCARD_RESET_CARD, &protocol));
  }

  SCARDCONTEXT context = 0;
  SCARDHANDLE card = 0;
  DWORD protocol = 0;
};

TEST_F(FaultTest, CardThatIsPulledIsSaidToBe) {
  using Answers = VirtualCard::Answers;
  const std::pair<const char*, Answers> rows[] = {
      {"before the answer", [](auto&) -> std::string { throw PulledAway{""}; }},
      {"within the answer",
       [](auto&) -> std::string { throw PulledAway{bytes("0010 6F02 8400")}; }},
      {"after the first command", [count = 0](auto&) mutable {
         if (++count > 1) throw PulledAway{""};
         return bytes("9000");
       }}};
  for (const auto& [moment, answers] : rows) {
    SCOPED_TRACE(moment);
    insert(kT1Atr, answers);
    expect_reply(failed("1003"), library.call("readcardbas"));
    expect_next_read_succeeds();
  }
}

TEST_F(FaultTest, EachOddAnswerIsOneFailureAndTheNextReadSucceeds) {
  struct Row {
    const char* fault;
    std::string content;  // of the file
    std::string answer;   // to every command; empty: as the file has it
    const char* code;
  };
  const Row rows[] = {
      {"no status", "", bytes("90"), "1004"},
      {"a status that no card has", "", bytes("0000"), "1004"},
      {"always more to come", "", bytes("6110"), "1004"},
      {"refuses", "", bytes("6982"), "1012"},
      {"wrong length for ever", "", bytes("6C10"), "1012"},
      {"empty file", "", "", "1013"},
      {"length beyond the file", bytes("5F2D 20") + "Li", "", "1013"},
      {"not UTF-8", bytes("5F2D 02 C3 28"), "", "1013"},
  };
  IsoCard odd = good;
  std::string answer;
  insert(kT1Atr,
         [&](const std::string& command) { return answer.empty() ? odd.answer(command) : answer; });
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fault);
    odd.files["3F00/0001"] = row.content;
    answer = row.answer;
    expect_reply(failed(row.code), library.call("readcardbas"));
    odd.files = good.files;
    answer.clear();
    expect_reply(kGoodReply, library.call("readcardbas"));
  }
  // More is announced than there is, and what there is comes with a warning.
  insert(kT1Atr, [&](const std::string& command) {
    const bool reads = command[1] == '\xB0';
    if (command[1] != '\xC0')
      return reads ? bytes(command[3] == 0 ? "6120" : "6B00") : bytes("9000");
    return command.back() == 5 ? bytes("5F2D 02") + "Li" + bytes("6282") : bytes("6C05");
  });
  expect_reply(kGoodReply, library.call("readcardbas"));
}

TEST_F(FaultTest, CardThatNoProfileFitsIsNamedByItsAtr) {
  expect_reply(failed("1002"), library.call("readcardbas"));
  insert(bytes("3F 00"), good);
  EXPECT_EQ(failed("1011") + R"("不支持该卡片，ATR：3F00"})", library.call("readcardbas"));
  expect_next_read_succeeds();
}

TEST_F(FaultTest, OtherProgramsAreWaitedForAndNamed) {
  insert(kT1Atr, good);
  {
    const OtherProgram exclusive(SCARD_SHARE_EXCLUSIVE);
    expect_reply(failed("1007"), library.call("readcardbas"));
    EXPECT_NE(library.call("pcsc.readers").find("\"errmsg\":\"读卡器正被其他程序占用"),
              std::string::npos);
  }
  OtherProgram shared(SCARD_SHARE_SHARED);
  shared.reset_card();
  expect_reply(kGoodReply, library.call("readcardbas"));
  int resets = 2;  // of which the library meets one with the card it has, one with a new start
  before_pcsc = [&](std::string_view function) {
    if (function == "SCardBeginTransaction" && resets-- > 0) shared.reset_card();
    return SCARD_S_SUCCESS;
  };
  expect_reply(kGoodReply, library.call("readcardbas"));
  before_pcsc = nullptr;
}

// What pcscd says here only of other readers, or of users whom its polkit refuses.
TEST_F(FaultTest, ResetCardIsReadOnceMoreAndRefusalsAreNamed) {
  struct Row {
    const char* function;
    LONG result;
    int times;
    std::string reply;
  };
  const Row rows[] = {
      {"SCardTransmit", SCARD_W_RESET_CARD, 1, kGoodReply},
      {"SCardTransmit", SCARD_W_RESET_CARD, 2, failed("1007")},
      {"SCardTransmit", SCARD_W_REMOVED_CARD, 1, failed("1003")},
      {"SCardConnect", SCARD_W_SECURITY_VIOLATION, 1, failed("1009")},
      {"SCardConnect", SCARD_E_NO_SMARTCARD, 1, failed("1002")},
      {"SCardConnect", SCARD_E_READER_UNAVAILABLE, 1, failed("1001")},
      {"SCardEstablishContext", SCARD_W_SECURITY_VIOLATION, 1, failed("1009")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.function);
    start_pcscd();  // so that the library needs a new context
    insert(kT1Atr, good);
    // From then on the library believes pcscd, and does not ask empty readers.
    expect_reply(kGoodReply, library.call("readcardbas"));
    if (row.function == std::string("SCardEstablishContext")) start_pcscd();
    int times = row.times;
    before_pcsc = [&](std::string_view function) {
      return function == row.function && times-- > 0 ? row.result : SCARD_S_SUCCESS;
    };
    expect_reply(row.reply, library.call("readcardbas"));
    before_pcsc = nullptr;
    expect_next_read_succeeds();
  }
}

// Each time the card goes between two of pcscd's looks at it, of which there is one every 0.4 s.
TEST_F(FaultTest, CardThatPcscdMissesIsFoundAndOneThatItHasInventedIsNot) {
  const auto answers = [this](const std::string& command) { return good.answer(command); };
  insert(kT1Atr, good);
  const OtherProgram missing(SCARD_SHARE_SHARED);
  inserted.reset();
  missing.die();
  inserted.emplace(kT1Atr, answers);
  library.functions();  // a connection to pcscd on which no card has answered
  wait_for_card();
  expect_reply(kGoodReply, library.call("readcardbas"));

  pull();
  inserted.emplace(kT1Atr, answers);
  const OtherProgram inventing(SCARD_SHARE_DIRECT);
  inventing.die();
  inserted.reset();
  library.call("readcardbas");
  pull();
}

TEST_F(FaultTest, ReadersMayComeAfterThePcscdAndWhileTheyAreListed) {
  insert(kT1Atr, good);
  library.functions();  // which knows no pcscd yet
  bool waited = false;
  int lists = 0;
  before_pcsc = [&](std::string_view function) {
    waited = waited || function == "SCardGetStatusChange";
    if (function != "SCardListReaders") return SCARD_S_SUCCESS;
    if (!waited) return SCARD_E_NO_READERS_AVAILABLE;
    return ++lists == 2 ? SCARD_E_INSUFFICIENT_BUFFER : SCARD_S_SUCCESS;
  };
  expect_reply(kGoodReply, library.call("readcardbas"));
  EXPECT_EQ(4, lists);
  before_pcsc = nullptr;
}

TEST_F(FaultTest, PcscdMayBeAbsentRestartedAndKilled) {
  expect_next_read_succeeds();
  pcscd.reset();
  expect_reply(failed("1008"), library.call("readcardbas"));
  start_pcscd();
  expect_next_read_succeeds();
  start_pcscd();  // without a request in between
  expect_next_read_succeeds();

  insert(kT1Atr, [this](const std::string&) {
    pcscd->signal(SIGKILL);
    return bytes("9000");
  });
  expect_reply(failed("1008"), library.call("readcardbas"));
  inserted.reset();
  start_pcscd();
  expect_next_read_succeeds();
}

}  // namespace
