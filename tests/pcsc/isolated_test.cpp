// The whole road: a page's request through the service and the isolated library to a card.

#include <atomic>
#include <future>

#include "tests/pcsc/pcsc_test.h"
#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

constexpr char kRequest[] = R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
constexpr char kReply[] =
    R"({"result":"true","fid":"readcardbas","data":{"name":"M\u00e4nnik<<a","language":"","sex":"",)"
    R"("login":"","issuer":"0005","cardnumber":"00000001"}})";

class IsolatedPcscTest : public ServiceTest, protected CardReader {
 protected:
  IsolatedPcscTest() {
    good.files["aid D27600012401"];
    good.objects["0065"] = bytes("5B 09") + "M\xE4nnik<<a";
    good.objects["004F"] = bytes("D2760001240103040005000000010000");
    sections = "[ISOLATED]\nlib1=2\n";
  }
  std::string readers() const override { return ask(R"({"fid":"pcsc.readers"})"); }

  IsoCard good;
};

TEST_F(IsolatedPcscTest, NewcomersCardReachesTheBrowsersClient) {
  start({"libquorvelpcsc"});
  const std::string program = QUORVEL_STAGE "/sdk/example/virtual_card.py";
  const ChildProcess newcomers_card(Launch{program, {program}});
  wait_for_card();
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
  insert(kT1Atr, good);
  EXPECT_EQ(kReply, ask(kRequest));

  std::promise<void> pulled;
  std::atomic<bool> mute = false;
  insert(kT1Atr, [&mute, wait = pulled.get_future().share()](const std::string&) {
    if (mute) wait.wait();
    return bytes("6A82");
  });
  mute = true;
  WsClient clerk = connect();
  clerk.send(kRequest);
  EXPECT_NE(std::string::npos, ask(R"({"fid":"getconfig"})").find("\"true\""));
  EXPECT_EQ(timed_out, clerk.receive());
  pulled.set_value();
  insert(kT1Atr, good);
  EXPECT_EQ(kReply, ask(kRequest));

  pcscd->stop();
  EXPECT_EQ(timed_out, ask(kRequest));
  pcscd->signal(SIGCONT);
  EXPECT_EQ(kReply, ask(kRequest));
}

}  // namespace
