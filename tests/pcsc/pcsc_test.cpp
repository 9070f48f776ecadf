#include "tests/pcsc/pcsc_test.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <winscard.h>

#include <algorithm>
#include <system_error>

#include "tests/support/checked.h"
#include "tests/support/own_network.h"
#include "tests/support/text.h"
#include "util/text/hex.h"

namespace fs = std::filesystem;

namespace {

void enter_own_namespaces() {
  enter_own_network(CLONE_NEWNS);
  checked(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
  checked(mount("tmpfs", "/run", "tmpfs", 0, nullptr), "mount /run");
  fs::create_directory("/run/pcscd");
}

TcpSocket connect_to_reader() {
  constexpr uint16_t kReaderPort = 35963;
  if (!eventually([] { return sockets_in_kernel(kReaderPort, "0A ") > 0; }))
    throw std::runtime_error("no virtual reader");
  return TcpSocket::connect(kReaderPort);
}

/// In the virtual reader's form: two bytes of length first.
std::string framed(const std::string& message) {
  return std::string{static_cast<char>(message.size() >> 8), static_cast<char>(message.size())} +
         message;
}

bool pcscd_answers() {
  SCARDCONTEXT context = 0;
  const LONG result = SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context);
  if (result == SCARD_S_SUCCESS) SCardReleaseContext(context);
  return result == SCARD_S_SUCCESS;
}

}  // namespace

VirtualCard::VirtualCard(std::string atr_bytes, Answers answers_to_commands)
    : atr(std::move(atr_bytes)),
      answers(std::move(answers_to_commands)),
      line(connect_to_reader()),
      thread([this] { serve(); }) {}

VirtualCard::~VirtualCard() {
  shutdown(line.descriptor(), SHUT_RDWR);
  thread.join();
}

void VirtualCard::serve() {
  static constexpr char kGiveAtr = 4;
  while (const auto size = receive(2)) {
    const std::size_t high = static_cast<unsigned char>((*size)[0]);
    const auto message = receive(high << 8 | static_cast<unsigned char>((*size)[1]));
    if (!message) return;
    try {
      if (message->size() > 1)
        line.send(framed(answers(*message)));
      else if ((*message)[0] == kGiveAtr)
        line.send(framed(atr));
    } catch (const PulledAway& pulled) {
      line.send(pulled.last_bytes);
      shutdown(line.descriptor(), SHUT_RDWR);
      return;
    } catch (const std::system_error&) {
      return;  // the reader has gone
    }
  }
}

std::optional<std::string> VirtualCard::receive(std::size_t size) const {
  std::string received(size, '\0');
  // Else each command waits for the acknowledgement of the last one, 40 ms.
  const int at_once = 1;
  setsockopt(line.descriptor(), IPPROTO_TCP, TCP_QUICKACK, &at_once, sizeof at_once);
  if (recv(line.descriptor(), received.data(), size, MSG_WAITALL) != ssize_t(size)) return {};
  return received;
}

CardReader::CardReader() {
  static const bool entered = (enter_own_namespaces(), true);
  static_cast<void>(entered);
  start_pcscd();
}

void CardReader::start_pcscd() {
  pcscd.reset();
  fs::remove("/run/pcscd/pcscd.comm");
  fs::remove("/run/pcscd/pcscd.pid");
  Launch launch = {"pcscd", {"pcscd", "--foreground"}};
  // Where pcscd asks polkit, which has not been started here, for each client.
  if (run_program({"pcscd", "--help"}).output.find("disable-polkit") != std::string::npos)
    launch.arguments.emplace_back("--disable-polkit");
  pcscd.emplace(launch);
  if (!eventually(pcscd_answers)) throw std::runtime_error("no pcscd");
}

void CardReader::wait_for_card(const std::string& present) const {
  const std::string text = "00 00\",\"present\":\"" + present + "\"";
  ASSERT_TRUE(eventually([&] { return readers().find(text) != std::string::npos; }, kPatience,
                         std::chrono::milliseconds(10)))
      << readers();
}

void CardReader::insert(const std::string& atr, VirtualCard::Answers answers) {
  pull();
  inserted.emplace(atr, std::move(answers));
  wait_for_card();
}

void CardReader::insert(const std::string& atr, IsoCard& card) {
  insert(atr, [&card](const std::string& command) { return card.answer(command); });
}

void CardReader::pull() {
  inserted.reset();
  wait_for_card("false");
}

std::string bytes(const std::string& digits) {
  std::string packed = digits;
  packed.erase(std::remove(packed.begin(), packed.end(), ' '), packed.end());
  return bytes_of_hex(packed).value_or("");
}

PcscLibrary::PcscLibrary() {
  for (const char* name : {"libquorvelpcsc.so", "pcsc_cards.ini"})
    std::filesystem::copy(std::filesystem::path(QUORVEL_STAGE "/bin") / name, folder.path() / name);
  functions();
}

void PcscLibrary::write_profiles(const std::string& text) const {
  write_file(folder.path() / "pcsc_cards.ini", text);
}

std::string PcscLibrary::functions() {
  library.reset();
  library = std::make_unique<LocalLibrary>(folder.path() / "libquorvelpcsc.so");
  char reason[QUORVEL_ERROR_SIZE] = {};
  if (!library->init(reason)) throw std::runtime_error(utf8(reason));
  return library->functions();
}

std::string PcscLibrary::call(const std::string& function, const std::string& data) const {
  const std::string command = R"({"data":{)" + data + R"(},"platform":"x86_64"})";
  char reply[QUORVEL_REPLY_SIZE] = {};
  const bool success = library->call(function.c_str(), command.c_str(), reply, nullptr) != 0;
  EXPECT_EQ(success, std::string(reply).find(R"("result":"true")") != std::string::npos) << reply;
  return utf8(reply);
}

std::string failed(const std::string& code) {
  return R"({"result":"false","fid":"readcardbas","errcode":")" + code + R"(","errmsg":)";
}

void expect_reply(const std::string& beginning, const std::string& reply) {
  EXPECT_EQ(beginning, reply.substr(0, beginning.size())) << reply;
}
