#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "libs/library.h"
#include "libs/library_status.h"
#include "libs/listing.h"
#include "util/json/failure_reply.h"
#include "util/os/event_set.h"
#include "util/text/text_buffer.h"

/// Size in bytes of the buffer that takes the reason why a library was not loaded.
inline constexpr std::size_t kErrorTextSize = 4024;

/// The registry of loaded reader libraries: loads those that the service INI file lists, and routes
/// each request to the first library, in byte order of the paths, whose function list contains the
/// function's name.
///
/// Everything runs on the service's one thread. Texts for people are GBK.
class LibManager {
 public:
  LibManager() noexcept;
  /// Leaves the libraries loaded and calls no uninit: the process is ending.
  virtual ~LibManager();
  LibManager(const LibManager&) = delete;
  LibManager& operator=(const LibManager&) = delete;

  /// Loads the libraries of the listing. One that fails is reported on standard output and in the
  /// log, and skipped; `errtext` (zero-filled, `size` bytes) holds the last failure. Always true.
  bool init(Listing listing, char* errtext, std::size_t size = kErrorTextSize);

  /// Loads the library at `path` and registers it under that path. On failure `errtext` says why,
  /// and the library is closed again.
  bool addlib(const char* path, char* errtext, std::size_t size = kErrorTextSize);

  /// Loads a library that is not registered yet into a helper process instead, where `limit` bounds
  /// loading and each call.
  bool add_isolated(const char* path, std::chrono::seconds limit, char* errtext,
                    std::size_t size = kErrorTextSize);

  /// Unloads every library, then does what init does.
  bool reinit(Listing listing, char* errtext, std::size_t size = kErrorTextSize);

  /// Unloads the library registered under exactly `path`, if there is one. Always true.
  bool dellib(const char* path);

  /// Lets the library that declares the function `fid` (in any letter case) answer the request with
  /// the command text `command`; the reply (GBK) goes to `reply` of `reply_size` bytes. Returns the
  /// library's result; 0 with a failure reply when no library declares the function. An isolated
  /// library answers later, under the ticket of `later` (see Library::call), or, with null, not at
  /// all.
  int call_cmd(const unsigned char* fid, const unsigned char* command, unsigned char* reply,
               std::size_t reply_size = kReplySize, Deferral* later = nullptr);

  /// Who gets the replies that come later, while handle_events() runs.
  void set_late_reply_handler(LateReplyHandler handler) { on_late_reply = std::move(handler); }
  /// Nobody waits for this reply any more.
  void forget(Ticket ticket);

  /// Readable when handle_events() is to be called; below 0 when no library is isolated.
  int event_descriptor() const;
  void handle_events();
  /// Ends the helper processes, at once those that work; an idle one has a second for its uninit.
  void end_isolated();

  /// Says in the log, once for each library, that a reply to the function `fid` was no GBK.
  void report_foreign_text(const char* fid);

  /// The libraries that the service INI file lists, in the order of their keys, with those that
  /// could not be loaded.
  std::vector<LibraryStatus> status() const;

 private:
  using LibraryTable = std::map<std::string, std::unique_ptr<Library>>;

  bool add(const char* path, std::chrono::seconds limit, TextBuffer errtext);
  bool load(const char* path, std::chrono::seconds limit, TextBuffer errtext);
  bool enter(const char* path, std::chrono::seconds limit, TextBuffer errtext);
  std::unique_ptr<Library> make_library(const char* path, std::chrono::seconds limit);
  LibraryTable::const_iterator find_function(const std::string& lowered_name) const;

  std::optional<EventSet> events;  ///< of isolated libraries, once there is one; outlives them
  LateReplyHandler on_late_reply;
  std::set<std::string> reported_for_text;  ///< paths
  LibraryTable libs;
  Listing listed;
};
