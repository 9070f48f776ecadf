// The whole road: a page's request through the service and the isolated library to a card.

#include <atomic>
#include <future>

#include "tests/pcsc/iso_card.h"
#include "tests/pcsc/virtual_card.h"
#include "tests/support/eventually.h"
#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

constexpr char kRequest[] = R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
constexpr char kReply[] =
    R"({"result":"true","fid":"readcardbas","data":{"name":"M\u00e4nnik<<a","language":"","sex":"",)"
    R"("login":"","issuer":"0005","cardnumber":"00000001"}})";

class IsolatedPcscTest : public ServiceTest {
 protected:
  IsolatedPcscTest() {
    good.files["aid D27600012401"];
    good.objects["0065"] = bytes("5B 09") + "M\xE4nnik<<a";
    good.objects["004F"] = bytes("D2760001240103040005000000010000");
    sections = "[ISOLATED]\nlib1=2\n";
  }

  void insert(VirtualCard::Answers answers) {
    card.reset();
    wait_for("\"present\":\"false\",\"atr\":\"\",\"profile\":\"\"},{\"name\":\"Virtual PCD 00 01");
    card.emplace(bytes("3B 80 01 81"), std::move(answers));
    wait_for("00 00\",\"present\":\"true\"");
  }
  void insert_good_card() {
    insert([this](const std::string& command) { return good.answer(command); });
  }

  /// Waits until the reply to "pcsc.readers" holds the text.
  void wait_for(const std::string& text) const {
    const auto holds = [&] {
      return ask(R"({"fid":"pcsc.readers"})").find(text) != std::string::npos;
    };
    ASSERT_TRUE(eventually(holds)) << ask(R"({"fid":"pcsc.readers"})");
  }

  Pcscd pcscd;
  IsoCard good;
  std::optional<VirtualCard> card;
};

TEST_F(IsolatedPcscTest, NewcomersCardReachesTheBrowsersClient) {
  start({"libquorvelpcsc"});
  const std::string program = QUORVEL_STAGE "/sdk/example/virtual_card.py";
  const ChildProcess newcomers_card(Launch{program, {program}});
  wait_for("00 00\",\"present\":\"true\"");
  const ProgramResult result = run_program(
      {"node", BROWSER_CLIENT, "ws://127.0.0.1:" + std::to_string(port) + "/", "readcardbas"});
  EXPECT_EQ(R"({"name":"Mustermann<<Anna","language":"de","sex":"2","login":"anna@example.org",)"
            R"("issuer":"0005","cardnumber":"00000001"})"
            "\n",
            result.output)
      << result.errors;
}

TEST_F(IsolatedPcscTest, MuteCardAndStoppedPcscdCostOneReplyEach) {
  const std::string timed_out = failure(utf8(messages::kLibraryTimedOut), "readcardbas");
  start({"libquorvelpcsc"});
  insert_good_card();
  EXPECT_EQ(kReply, ask(kRequest));

  std::promise<void> pulled;
  std::atomic<bool> mute = false;
  insert([&mute, wait = pulled.get_future().share()](const std::string&) {
    if (mute) wait.wait();
    return bytes("6A82");
  });
  mute = true;
  WsClient clerk = connect();
  clerk.send(kRequest);
  EXPECT_NE(std::string::npos, ask(R"({"fid":"getconfig"})").find("\"true\""));
  EXPECT_EQ(timed_out, clerk.receive());
  pulled.set_value();
  insert_good_card();
  EXPECT_EQ(kReply, ask(kRequest));

  pcscd.process().signal(SIGSTOP);
  EXPECT_EQ(timed_out, ask(kRequest));
  pcscd.process().signal(SIGCONT);
  EXPECT_EQ(kReply, ask(kRequest));
}

}  // namespace
