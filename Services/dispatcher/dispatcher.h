#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "util/reply.h"

class LibManager;
namespace neb {
class CJsonObject;
}

/// Answers one request. Made for one message, used as constructor, init, dispatch (only when init
/// returned true), and dropped. Handles all texts as bytes: requests are UTF-8, replies GBK.
///
/// The object is large (200 KiB) and meant for automatic storage; it touches no more of it than the
/// request needs.
class Jdispatcher {
 public:
  /// Copies the request `text` (NUL-terminated). `registry` is not owned and outlives the
  /// object.
  Jdispatcher(LibManager* registry, const char* text);
  virtual ~Jdispatcher() = default;
  Jdispatcher(const Jdispatcher&) = delete;
  Jdispatcher& operator=(const Jdispatcher&) = delete;

  /// Takes the function name out of the request and builds the command text: the request without
  /// its "fid" member and with the member "platform" of the text `platform`, unless it has one.
  /// On failure writes the failure reply to `out` of `size` bytes, which is untouched otherwise.
  bool init(char* out, const char* platform, std::size_t size = kReplySize);

  /// Answers the request into `out` of `size` bytes. Returns whether the function succeeded; the
  /// reply is complete either way. Exceptions of a reader library pass through.
  bool dispatch(char* out, std::size_t size = kReplySize);

  /// Stores the back-end server's address once a TCP connection to it has succeeded. On failure
  /// `errmsg` of `size` bytes holds the reason and nothing is stored. A file that can't be written
  /// is reported on standard output only.
  bool setini(const char* ip, int port, char* errmsg, std::size_t size = kReasonSize);

  /// Size in bytes of the field for a reason text.
  static constexpr std::size_t kReasonSize = 200;

 private:
  bool forward(char* out, std::size_t size);
  bool read_settings(char* out, std::size_t size) const;
  bool update_settings(char* out, std::size_t size);

  // Only their texts are ever looked at, so only their first bytes are cleared at construction.
  char request[102400];
  LibManager* mgr;
  char command[102400];
  char fid[100];
  bool request_fits;
};

/// Adds the string member `key` to the document; nothing changes when it has such a member already
/// or is not an object. An empty document becomes an object first.
void jsonadd(neb::CJsonObject* json, const char* key, const unsigned char* value);

/// A reader library's `reply` (GBK) with the string member "fid" of the text `name` appended,
/// printed without white space. Nothing when the reply is to stay as it is: it has such a member,
/// or holds "fid" in quotation marks anywhere.
std::optional<std::string> with_fid(std::string_view reply, std::string_view name);

/// Writes the document as the reply to `out` of `size` bytes; a failure reply when it does not fit.
void write_reply(char* out, std::size_t size, const neb::CJsonObject& json);
