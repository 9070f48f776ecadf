// The dispatcher with a registry, a back-end server and a settings file that the input decides on.
// Input: five bytes, request NUL library's reply NUL settings file. The bytes: size of the reply
// buffer in units of 8 bytes above 32, blanks behind the request in units of 512, the library's
// result (2: it throws), whether the back-end server answers, what the settings file holds (see
// fill_settings).

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "Services/dispatcher/dispatcher.h"
#include "Services/dispatcher/program_directory.h"
#include "Services/dispatcher/reachability.h"
#include "access/access_rules.h"
#include "fuzz/client_view.h"
#include "fuzz/input.h"
#include "libs/funlib.h"
#include "libs/lib_manager.h"
#include "util/json/failure_reply.h"
#include "util/json/json_object.h"

namespace {

constexpr std::size_t kSmallestReply = 32;
constexpr std::size_t kSizeUnit = 8;
constexpr std::size_t kBlanksUnit = 512;
constexpr int kThrows = 2;

/// What the dispatcher meets while it answers the input at hand.
struct World {
  int library_result = 0;
  bool server_answers = false;
  std::string library_reply;
  std::optional<std::string> forwarded;  ///< the library's reply, once it was asked
};
World world;

/// The folder of the settings file, of this process's own.
struct SettingsFolder {
  SettingsFolder() : path(std::filesystem::temp_directory_path() / "quorvel-fuzz-XXXXXX") {
    require(mkdtemp(path.data()) != nullptr, "a temporary folder can be made");
  }
  ~SettingsFolder() { std::filesystem::remove_all(path); }
  SettingsFolder(const SettingsFolder&) = delete;
  SettingsFolder& operator=(const SettingsFolder&) = delete;

  std::string path;
};

const std::string& settings_folder() {
  static const SettingsFolder folder;
  return folder.path;
}

constexpr int kNoFile = 0;
constexpr int kAsShipped = 1;  ///< any other kind: the input's file

void fill_settings(int kind, const std::string& content) {
  const std::string path = settings_folder() + "/quorvel.ini";
  if (kind == kNoFile) {
    std::filesystem::remove(path);
  } else {
    std::ofstream(path, std::ios::binary)
        << (kind == kAsShipped ? "[SERVER]\nSERVER_IP=10.0.0.1\nSERVER_PORT=80\n" : content);
  }
}

}  // namespace

// In place of the registry, the program's folder and the network; the last two by the linker.

LibManager::LibManager() noexcept = default;
LibManager::~LibManager() = default;

/// Twenty that have nothing good to say.
std::vector<LibraryStatus> LibManager::status() const {
  const std::string& text = world.library_reply;
  const LibraryCondition failed{LibraryCondition::State::kFailed, Gbk(text), 0, 0};
  return std::vector<LibraryStatus>(20, {"lib20", text, text, std::chrono::hours(1), failed});
}

void LibManager::report_foreign_text(const char*) {}

int LibManager::call_cmd(const unsigned char* fid, const unsigned char* command,
                         unsigned char* reply, std::size_t reply_size, Deferral*) {
  const std::string text = reinterpret_cast<const char*>(command);
  neb::CJsonObject json;
  require(fid[0] != '\0', "a function has a name");
  require(json.Parse(text) && json.ToString() == text, "the command text is a print");
  require(!json.Add("platform", ""), "the command text has a platform");
  if (world.library_result == kThrows) throw std::runtime_error("a library may throw");
  char* out = reinterpret_cast<char*>(reply);
  if (!copy_text({out, reply_size}, world.library_reply))
    write_failure({out, reply_size}, GbkView("too long"));
  world.forwarded = out;
  return world.library_result;
}

char curPath0[kProgramPathSize];

bool getfilepath() { return copy_text(curPath0, settings_folder()); }

extern "C" {
int fuzz_connect(int, const sockaddr*, socklen_t) { return world.server_answers ? 0 : -1; }
int fuzz_usleep(useconds_t) { return 0; }
}

namespace {

/// A library's reply stays, or is printed again with "fid" behind its members; when a client could
/// have read it, whatever its bytes, the client still can, and reads the same.
void require_forwarded(const char* reply) {
  if (*world.forwarded == reply) return;
  const std::string before = client_text(world.forwarded->c_str());
  const Json old = read_strictly(before);
  if (!old || !neb::CJsonObject().Parse(before)) return;
  const Json json = require_readable(reply);
  if (cJSON_IsObject(old.get()) && !cJSON_HasObjectItem(old.get(), "fid"))
    cJSON_DeleteItemFromObject(json.get(), "fid");
  require(same_texts(old.get(), json.get()), "the library's members stay as they were");
}

/// The reply; empty when the library has thrown.
std::string answer(const std::string& request, std::size_t size) {
  LibManager registry;
  begin_check_pass();
  const auto dispatcher = std::make_unique<Jdispatcher>(&registry, request.c_str());
  const auto reply = std::make_unique<char[]>(size);
  bool done = false;
  try {
    const bool good = dispatcher->init(reply.get(), "x86_64", size);
    if (good && std::string_view(dispatcher->function()) == "quorvel.status") {
      const AccessRules access;
      const Outcome outcome =
          dispatcher->answer({access, "x86_64"}, nullptr, 1, {reply.get(), size});
      const std::string& status = std::get<Utf8>(outcome).bytes();
      require(read_strictly(status) != nullptr, "the status is JSON");
      return status;
    }
    done = good && dispatcher->dispatch(reply.get(), size);
  } catch (const std::runtime_error&) {
    require(world.library_result == kThrows, "only the library throws");
    return {};
  }
  require(strnlen(reply.get(), size) < size, "the reply ends in its buffer");
  if (world.forwarded) {
    require(done == (world.library_result != 0), "the library's result is passed on");
    require_forwarded(reply.get());
  } else {
    const bool told = require_envelope(reply.get());
    require(told == done || size < kReplySize, "the reply tells the result");
  }
  return reply.get();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t reply_size = kSmallestReply + kSizeUnit * input.byte();
  const std::size_t blanks = kBlanksUnit * input.byte();
  world = {};
  world.library_result = input.byte() % 3;
  world.server_answers = input.byte() % 2 != 0;
  const int settings = input.byte() % 3;
  const std::string request = input.text().append(blanks, ' ');
  world.library_reply = input.text();
  fill_settings(settings, input.rest());
  const bool stored = answer(request, reply_size) == R"({"result":"true"})" && !world.forwarded;
  if (!stored || settings != kAsShipped) return 0;
  const std::string now = answer(R"({"fid":"getconfig"})", kReplySize);
  require(now.find(R"("port":"")") == std::string::npos, "a stored port can be read");
  return 0;
}
