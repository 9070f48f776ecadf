#include "tests/pcsc/virtual_card.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <winscard.h>

#include <csignal>
#include <system_error>

#include "readers/common/hex.h"
#include "tests/support/eventually.h"
#include "tests/support/files.h"
#include "tests/support/own_network.h"

namespace fs = std::filesystem;

namespace {

constexpr uint16_t kReaderPort = 35963;
constexpr char kSocket[] = "/run/pcscd/pcscd.comm";

void check(bool success, const char* what) {
  if (!success) throw std::system_error(errno, std::generic_category(), what);
}

TcpSocket connect_to_reader() {
  std::optional<TcpSocket> line;
  const bool connected = eventually([&] {
    try {
      line.emplace(TcpSocket::connect(kReaderPort));
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  });
  if (!connected) throw std::runtime_error("no virtual reader");
  return std::move(*line);
}

/// In the virtual reader's form: two bytes of length first.
std::string framed(const std::string& message) {
  return std::string{static_cast<char>(message.size() >> 8), static_cast<char>(message.size())} +
         message;
}

}  // namespace

void enter_own_namespaces() {
  static const bool entered = [] {
    enter_own_network(CLONE_NEWNS);
    check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount /");
    check(mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0, "mount /run");
    fs::create_directory("/run/pcscd");
    return true;
  }();
  static_cast<void>(entered);
}

Pcscd::Pcscd() {
  enter_own_namespaces();
  start();
}

void Pcscd::kill() { pcscd.reset(); }

void Pcscd::start() {
  kill();
  fs::remove(kSocket);
  fs::remove("/run/pcscd/pcscd.pid");
  Launch launch = {"pcscd", {"pcscd", "--foreground"}};
  // Where pcscd asks polkit, which has not been started here, for each client.
  if (run_program({"pcscd", "--help"}).output.find("disable-polkit") != std::string::npos)
    launch.arguments.emplace_back("--disable-polkit");
  pcscd.emplace(launch);
  const auto answers = [] {
    SCARDCONTEXT context = 0;
    const LONG result = SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context);
    if (result == SCARD_S_SUCCESS) SCardReleaseContext(context);
    return result == SCARD_S_SUCCESS;
  };
  if (!eventually(answers)) throw std::runtime_error("no pcscd");
}

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
  for (std::size_t done = 0; done < size;) {
    // Else each command waits for the acknowledgement of the last one, 40 ms.
    const int at_once = 1;
    setsockopt(line.descriptor(), IPPROTO_TCP, TCP_QUICKACK, &at_once, sizeof at_once);
    const ssize_t count = recv(line.descriptor(), received.data() + done, size - done, 0);
    if (count <= 0) return std::nullopt;
    done += static_cast<std::size_t>(count);
  }
  return received;
}

std::string bytes(const std::string& digits) {
  std::string packed;
  for (const char c : digits)
    if (c != ' ') packed += c;
  return bytes_of_hex(packed).value_or("");
}
