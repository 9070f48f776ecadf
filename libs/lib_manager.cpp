#include "libs/lib_manager.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "libs/function_list.h"
#include "libs/isolated_library.h"
#include "libs/listing.h"
#include "libs/local_library.h"
#include "util/json/json_object.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

/// The reason in a text of addlib: its "errmsg", or the bare text where it is no failure reply.
Gbk reason_in(const Gbk& text) {
  std::string reason = text.bytes();
  neb::CJsonObject(reason, Charset::kGbk).Get("errmsg", reason);
  return Gbk(std::move(reason));
}

/// Runs `action`; an exception becomes a failure text and the result false.
template <typename Action>
bool reporting_exceptions(TextBuffer errtext, Action action) {
  try {
    return action();
  } catch (const LibraryException& error) {
    return write_failure(errtext, GbkView(error.what()));
  } catch (...) {
    return write_failure(errtext, current_exception_text(messages::kException));
  }
}

}  // namespace

LibManager::LibManager() noexcept = default;

LibManager::~LibManager() {
  // Reachable to the last, so that a leak checker sees that this is meant.
  // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): nothing is left to lose at this point
  static auto* const left_loaded = new LibraryTable;
  left_loaded->merge(libs);
}

bool LibManager::init(Listing listing, char* errtext, std::size_t size) {
  listed = std::move(listing);
  for (ListedLibrary& library : listed) {
    if (!library.failure.empty()) continue;
    log_user("loading begin =%s\n", shown(library.value).c_str());
    if (add(library.path.c_str(), library.limit, {errtext, size})) continue;
    const Gbk reason(errtext);
    print("\n?error  = %s?\n", shown(reason).c_str());
    log_error("%s\n", shown(reason).c_str());
    library.failure = reason_in(reason);
  }
  return true;
}

bool LibManager::addlib(const char* path, char* errtext, std::size_t size) {
  return add(path, kInProcess, {errtext, size});
}

bool LibManager::add_isolated(const char* path, std::chrono::seconds limit, char* errtext,
                              std::size_t size) {
  const TextBuffer reason(errtext, size);
  return reporting_exceptions(reason, [&] { return enter(path, limit, reason); });
}

bool LibManager::add(const char* path, std::chrono::seconds limit, TextBuffer errtext) {
  return reporting_exceptions(errtext, [&] { return load(path, limit, errtext); });
}

std::unique_ptr<Library> LibManager::make_library(const char* path, std::chrono::seconds limit) {
  if (limit == kInProcess) return std::make_unique<LocalLibrary>(path);
  if (!events) events.emplace();
  return std::make_unique<IsolatedLibrary>(path, limit, *events, on_late_reply);
}

bool LibManager::load(const char* path, std::chrono::seconds limit, TextBuffer errtext) {
  print("addlib ======%s \n", shown(path).c_str());
  const auto registered = libs.find(path);
  if (registered != libs.end()) {
    print("finded ======%s %s \n", shown(path).c_str(), shown(registered->first).c_str());
    return fail_with(errtext, Gbk(gbk_of(path).bytes() + " loaded! \n"));
  }
  log_user("loading %s \n", shown(path).c_str());
  return enter(path, limit, errtext);
}

bool LibManager::enter(const char* path, std::chrono::seconds limit, TextBuffer errtext) {
  auto library = make_library(path, limit);
  char reason[QUORVEL_ERROR_SIZE] = {};
  if (!library->init(reason))
    return write_failure(errtext, format_gbk(messages::kInitFailed, gbk_of(path), Gbk(reason)));
  if (std::strstr(library->functions(), kReservedPrefix) != nullptr)
    log_warning(
        "%s: functions that begin with \"%s\" are the service's own; it is never asked for\n",
        shown(path).c_str(), kReservedPrefix);
  libs.emplace(path, std::move(library));
  return true;
}

bool LibManager::reinit(Listing listing, char* errtext, std::size_t size) {
  return reporting_exceptions({errtext, size}, [&] {
    libs.clear();
    return init(std::move(listing), errtext, size);
  });
}

bool LibManager::dellib(const char* path) {
  const auto registered = libs.find(path);
  if (registered != libs.end()) libs.erase(registered);
  return true;
}

LibManager::LibraryTable::const_iterator LibManager::find_function(
    const std::string& lowered_name) const {
  return std::find_if(libs.begin(), libs.end(), [&](const auto& entry) {
    return std::strstr(entry.second->functions(), lowered_name.c_str()) != nullptr;
  });
}

int LibManager::call_cmd(const unsigned char* fid, const unsigned char* command,
                         unsigned char* reply, std::size_t reply_size, Deferral* later) {
  if (reply == nullptr) return 0;
  const TextBuffer out(reinterpret_cast<char*>(reply), reply_size);
  if (fid != nullptr && command != nullptr) {
    const std::string name = ascii_lower(reinterpret_cast<const char*>(fid));
    const auto library = find_function(name);
    if (library != libs.end())
      return library->second->call(name.c_str(), reinterpret_cast<const char*>(command), out,
                                   later);
  }
  write_failure(out, messages::kNotSupported);
  return 0;
}

void LibManager::forget(Ticket ticket) {
  for (const auto& entry : libs) entry.second->forget(ticket);
}

std::vector<LibraryStatus> LibManager::status() const {
  std::vector<LibraryStatus> all;
  for (const ListedLibrary& entry : listed) {
    LibraryStatus one{entry.key, entry.path, {}, entry.limit, {}};
    const auto loaded = entry.failure.empty() ? libs.find(entry.path) : libs.end();
    if (loaded != libs.end()) {
      one.functions = loaded->second->functions();
      one.condition = loaded->second->condition();
    } else {
      one.condition.state = LibraryCondition::State::kFailed;
      one.condition.reason = entry.failure;
    }
    all.push_back(std::move(one));
  }
  return all;
}

int LibManager::event_descriptor() const { return events ? events->descriptor() : -1; }

void LibManager::handle_events() {
  if (events) events->handle_events(0);
}

void LibManager::end_isolated() {
  const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  for (const auto& entry : libs) entry.second->ask_to_end();
  for (const auto& entry : libs) entry.second->end(latest);
}

void LibManager::report_foreign_text(const char* fid) {
  const auto library = find_function(ascii_lower(fid));
  if (library == libs.end() || !reported_for_text.insert(library->first).second) return;
  log_warning(
      "%s: a reply is no GBK; pages get it as GB18030, with U+FFFD for stray bytes. "
      "quorvel-libcheck shows where\n",
      shown(library->first).c_str());
}
