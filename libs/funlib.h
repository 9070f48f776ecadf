#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "sdk/quorvel_reader.h"
#include "util/json/failure_reply.h"
#include "util/text/charset.h"
#include "util/text/text_buffer.h"

static_assert(kReplySize == QUORVEL_REPLY_SIZE, "a library's reply is a reply");

/// Size in bytes of the field that keeps a library's function list, with its terminating NUL.
inline constexpr std::size_t kFunctionListSize = 4096;

/// The reason why the library at `path` can't be loaded, with what the system says of it.
Gbk cannot_load(std::string_view path, std::string_view why);

struct LibraryCloser {
  void operator()(void* handle) const;
};

/// The binding of one reader library: loads the shared object, finds its four entry points, reads
/// its function list, initialises it and passes requests to it.
///
/// Everything runs on the service's one thread. Texts for people are GBK.
class Funlib {
 public:
  /// `path`: a path beginning with "/" or ".", which goes to the dynamic loader as it stands, or
  /// the name of a file beside the program. At most 399 bytes.
  explicit Funlib(const char* path);
  /// Calls the library's uninit when it was initialised, then closes it.
  virtual ~Funlib();
  Funlib(const Funlib&) = delete;
  Funlib& operator=(const Funlib&) = delete;

  /// Loads and initialises the library; once. On failure `errtext`, zero-filled by the caller, of
  /// `errtext_size` bytes, holds the reason. A library that was opened stays open until the binding
  /// is destroyed.
  bool init(char* errtext, std::size_t errtext_size = QUORVEL_ERROR_SIZE);

  /// Lets the library answer one request. `fid` is the function name in lower case and `command`
  /// the command text (JSON, UTF-8); both NUL-terminated. The reply (GBK) goes to `reply` of
  /// `reply_size` bytes. Returns the library's own result, or 0 with a failure reply when it is not
  /// initialised, wrote past `reply_size` bytes or left its reply without an end. What the library
  /// throws passes through.
  int call_cmd(const unsigned char* fid, const unsigned char* command, unsigned char* reply,
               std::size_t reply_size = kReplySize);

  /// The functions that the library serves, as it lists them; empty until init succeeded.
  const char* functions() const { return funclist; }

 private:
  bool open(TextBuffer errtext);
  bool find_entry_points(TextBuffer errtext);
  bool read_function_list(TextBuffer errtext);

  char verinfo[QUORVEL_VERINFO_SIZE] = {};
  char verextra[QUORVEL_VEREXTRA_SIZE] = {};
  std::unique_ptr<void, LibraryCloser> handle;
  bool inited = false;
  char funclist[kFunctionListSize] = {};
  decltype(&::init) p_init = nullptr;
  decltype(&::uninit) p_uninit = nullptr;
  decltype(&::scommand) p_scommand = nullptr;
  decltype(&::getversion) p_getversion = nullptr;
  char libname[400] = {};
};
