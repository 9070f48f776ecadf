#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "util/json/failure_reply.h"
#include "util/text/text_buffer.h"

class CIni;
class Funlib;

/// Size in bytes of the buffer that takes the reason why a library was not loaded.
inline constexpr std::size_t kErrorTextSize = 4024;

/// The registry of loaded reader libraries: reads the service INI file, loads the libraries that it
/// lists, and routes each request to the first library, in byte order of the paths, whose function
/// list contains the function's name.
///
/// Everything runs on the service's one thread. Texts for people are GBK.
class LibManager {
 public:
  LibManager() noexcept;
  /// Leaves the libraries loaded and calls no uninit: the process is ending.
  virtual ~LibManager();
  LibManager(const LibManager&) = delete;
  LibManager& operator=(const LibManager&) = delete;

  /// Reads quorvel_service.ini beside the program: takes the log's charset, loads lib1 to lib20 and
  /// takes the port. A
  /// library that fails is reported on standard output and in the log, and skipped; `errtext`
  /// (zero-filled, `size` bytes) holds the last failure. Always true. Ends the process with status
  /// 1 when the working directory can't be read.
  bool init(char* errtext, std::size_t size = kErrorTextSize);

  /// Loads the library at `path` and registers it under that path. On failure `errtext` says why,
  /// and the library is closed again.
  bool addlib(const char* path, char* errtext, std::size_t size = kErrorTextSize);

  /// Unloads every library, then does what init does.
  bool reinit(char* errtext, std::size_t size = kErrorTextSize);

  /// Unloads the library registered under exactly `path`, if there is one. Always true.
  bool dellib(const char* path);

  /// Lets the library that declares the function `fid` (in any letter case) answer the request with
  /// the command text `command`; the reply (GBK) goes to `reply` of `reply_size` bytes. Returns the
  /// library's result; 0 with a failure reply when no library declares the function.
  int call_cmd(const unsigned char* fid, const unsigned char* command, unsigned char* reply,
               std::size_t reply_size = kReplySize);

  /// Says in the log, once for each library, that a reply to the function `fid` was no GBK.
  void report_foreign_text(const char* fid) const;

  /// TCP port to listen on; 47392 until init has read the INI file, 0 when that names none
  /// that can be used.
  int listening_port() const { return port; }

 private:
  using LibraryTable = std::map<std::string, std::unique_ptr<Funlib>>;

  void load_listed_libraries(CIni& ini, char* errtext, std::size_t size);
  bool load(const char* path, TextBuffer errtext);
  Funlib* library_of(const std::string& lowered_name) const;

  LibraryTable libs;
  int port;
};
