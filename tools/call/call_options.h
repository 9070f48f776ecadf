#pragma once

#include <stdexcept>
#include <string>

/// A WebSocket address, taken apart.
struct ServiceUrl {
  std::string text;  ///< as given, for messages
  std::string host;
  std::string path;  ///< begins with "/"
  int port = 0;
  bool tls = false;  ///< true for wss://
};

/// What the command line asks for. Texts are UTF-8.
struct CallOptions {
  ServiceUrl url;
  std::string origin;        ///< the header Origin, as a page of that site sends it; empty: none
  std::string ca_file;       ///< PEM file trusted beside the system's store; empty: the store alone
  int timeout_seconds = 30;  ///< for the whole exchange; a card operation may take most of it
  std::string request;       ///< sent as it is, without the line end that closes standard input
  bool help = false;         ///< true: print kUsage and do nothing else
};

/// The command line can't be carried out; what() says why in one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Untranslated.
extern const char* const kUsage;

/// Reads the command line, and standard input when the request is "-".
/// Throws UsageError.
CallOptions parse_options(int argc, char** argv);
