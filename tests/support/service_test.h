#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/daemon_process.h"
#include "tests/support/text.h"
#include "tests/support/ws_client.h"
#include "tests/support/ws_frame.h"

/// A service of its own for each test. After each test no descriptor of its connections may be
/// left, a new connection must be answered, and SIGINT must end the service with status 0, which a
/// sanitizer's finding would change.
class ServiceTest : public testing::Test {
 protected:
  /// A request and its reply (UTF-8).
  using Exchange = std::pair<std::string, std::string>;

  ServiceTest();
  void TearDown() override;

  /// Copies these test readers beside the program, lists them in this order and starts the service.
  void start(const std::vector<std::string>& readers = {"functions"},
             const std::vector<std::string>& arguments = {}, const std::string& name = {});

  /// Has a shell start the service from now on, which does `prepare` first.
  void start_by_shell(const std::string& prepare) const;

  WsClient connect() const { return WsClient(port, options); }
  /// A request on a connection of its own.
  std::string ask(std::string_view request) const { return connect().ask(request); }
  /// All that comes on a connection of its own after these bytes.
  std::string http(std::string_view request) const;
  /// Sends each request as a text, as a binary message and in pieces, all on one connection.
  void expect_replies(const std::vector<Exchange>& exchanges) const;
  /// Waits until the service has closed every connection.
  void wait_until_idle();
  /// Whether the text (UTF-8) is among the service's messages, which are GBK.
  bool said(const std::string& text) const;

  /// What the function "echo" of the reader "functions" replies to a command text.
  static std::string echoed(const std::string& command);
  /// A request that can be told from others, and what it is replied.
  static std::string echo_request(int number);
  std::string echo_reply(int number) const;

  const ServiceFolder folder{QUORVEL_STAGE};
  const uint16_t port = free_port();
  std::string platform;  ///< the member that the service adds to every command
  WsOptions options;
  std::string sections;  ///< further ones of the service INI file
  std::optional<DaemonProcess> daemon;

 private:
  size_t idle_descriptors = 0;
};
