#pragma once

#include <cstddef>
#include <memory>

#include "util/reply.h"

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
  bool init(char* errtext, std::size_t errtext_size = kReplySize);

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
  using InitEntry = int (*)(char* parameter);
  using UninitEntry = int (*)();
  using CommandEntry = int (*)(const char* fid, const char* command, char* reply);
  using VersionEntry = int (*)(char* verinfo, char* answer, char* verextra, char* errtext);

  bool open(char* errtext, std::size_t errtext_size);
  bool find_entry_points(char* errtext, std::size_t errtext_size);
  bool read_function_list(char* errtext, std::size_t errtext_size);

  char verinfo[20] = {};
  char verextra[32] = {};
  std::unique_ptr<void, LibraryCloser> handle;
  bool inited = false;
  char funclist[4096] = {};
  InitEntry p_init = nullptr;
  UninitEntry p_uninit = nullptr;
  CommandEntry p_scommand = nullptr;
  VersionEntry p_getversion = nullptr;
  char libname[400] = {};
};
