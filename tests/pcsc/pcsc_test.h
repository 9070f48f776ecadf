#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "libs/local_library.h"
#include "tests/pcsc/iso_card.h"
#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/tcp_socket.h"

/// A card that ends in the middle of an answer: the last bytes that the reader gets, which count as
/// they are, the two of the length included.
struct PulledAway {
  std::string last_bytes;
};

/// A card in the virtual reader from construction to destruction. Commands are answered on a thread
/// of its own.
class VirtualCard {
 public:
  /// The answer to a command, status included; throws PulledAway.
  using Answers = std::function<std::string(const std::string& command)>;

  VirtualCard(std::string atr_bytes, Answers answers_to_commands);
  VirtualCard(const VirtualCard&) = delete;
  VirtualCard& operator=(const VirtualCard&) = delete;
  ~VirtualCard();

 private:
  void serve();
  /// So many bytes; none once the reader has gone or the card is pulled.
  std::optional<std::string> receive(std::size_t size) const;

  const std::string atr;
  const Answers answers;
  const TcpSocket line;
  std::thread thread;
};

/// The virtual reader "Virtual PCD 00 00", its pcscd, and the card in it: a part of fixtures. The
/// process moves into namespaces of its own before its first thread, where /run is empty: the pcscd
/// of this machine, and the virtual reader's port, belong to others.
class CardReader {
 protected:
  CardReader();
  virtual ~CardReader() = default;

  /// The reply to "pcsc.readers".
  virtual std::string readers() const = 0;

  /// Ends pcscd if it runs, leaves what a crash leaves, and starts it.
  void start_pcscd();
  /// Waits until the reader says so of its card; `present` as in the reply.
  void wait_for_card(const std::string& present = "true") const;
  /// Puts the card into the reader in the place of another, and waits until it is noticed.
  void insert(const std::string& atr, VirtualCard::Answers answers);
  void insert(const std::string& atr, IsoCard& card);
  void pull();

  std::optional<ChildProcess> pcscd;
  std::optional<VirtualCard> inserted;
};

/// Bytes of hexadecimal digits with blanks between them.
std::string bytes(const std::string& digits);

inline const std::string kT1Atr = bytes("3B 80 01 81");
inline const std::string kT0Atr = bytes("3B 00");

/// The library as installed, bound as the service binds it, beside a profile file of the test's.
class PcscLibrary {
 public:
  PcscLibrary();

  /// Puts the text into the place of the shipped profiles.
  void write_profiles(const std::string& text) const;
  /// Loads the library anew and returns the functions that it declares.
  std::string functions();
  /// The reply (UTF-8) to a request; `data` are the members of "data".
  std::string call(const std::string& function, const std::string& data = "") const;

 private:
  const TemporaryFolder folder{"pcsc"};
  std::unique_ptr<Library> library;
};

/// The library, and a reader with a pcscd of the test's own.
class PcscTest : public testing::Test, protected CardReader {
 protected:
  std::string readers() const override { return library.call("pcsc.readers"); }

  PcscLibrary library;
};

/// What a failure reply to "readcardbas" begins with.
std::string failed(const std::string& code);
/// Expects that the reply begins so.
void expect_reply(const std::string& beginning, const std::string& reply);
