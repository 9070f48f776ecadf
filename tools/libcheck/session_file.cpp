#include "tools/libcheck/session_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "tools/libcheck/text.h"
#include "util/handle/unique_fd.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"
#include "util/os/regular_file.h"
#include "util/text/format.h"

namespace {

constexpr int kFormat = 1;
constexpr char kNotice[] =
    "This file holds what cards and requests say about people. Keep it to yourself, and delete it "
    "when it has served.";

std::string time_of_day() {
  const std::time_t now = std::time(nullptr);
  std::tm utc = {};
  gmtime_r(&now, &utc);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

UniqueFile create(const std::string& path) {
  UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (fd.get() < 0 && errno == EEXIST)
    throw SessionError(format_text(
        translated("%s exists already, and no session is overwritten; name another file"),
        path.c_str()));
  UniqueFile file(fd.get() < 0 ? nullptr : fdopen(fd.get(), "w"));
  if (!file)
    throw SessionError(format_text(translated("%s: %s; name a file that you may write"),
                                   path.c_str(), std::strerror(errno)));
  fchmod(fd.release(), 0600);  // whatever the umask has taken away
  return file;
}

/// One line of a session, whose faults are told with the line's number.
class SessionLine {
 public:
  SessionLine(const std::string& path, int number, const std::string& text)
      : place(format_text(translated("%s, line %d: "), path.c_str(), number)),
        json(cJSON_ParseWithOpts(text.c_str(), nullptr, 1)) {
    if (!is_utf8(text) || !cJSON_IsObject(json.get()))
      refuse(translated("it is no JSON object in UTF-8"));
  }

  [[noreturn]] void refuse(const std::string& reason) const {
    throw SessionError(place + reason +
                       translated("; delete the line, or record the session again"));
  }

  std::string text(const char* name) const {
    const char* value = cJSON_GetStringValue(member(name));
    if (value == nullptr) refuse(format_text(translated("it has no text \"%s\""), name));
    return value;
  }

  double number(const char* name) const {
    if (!cJSON_IsNumber(member(name)))
      refuse(format_text(translated("it has no number \"%s\""), name));
    return cJSON_GetNumberValue(member(name));
  }

  bool truth(const char* name) const {
    if (!cJSON_IsBool(member(name)))
      refuse(format_text(translated("it has no true or false \"%s\""), name));
    return cJSON_IsTrue(member(name)) != 0;
  }

 private:
  const cJSON* member(const char* name) const {
    return cJSON_GetObjectItemCaseSensitive(json.get(), name);
  }

  std::string place;
  Json json;
};

RecordedCall read_call(const SessionLine& line) {
  PageReply reply;
  reply.text = line.text("reply");
  reply.by_library = line.truth("by_library");
  reply.milliseconds = line.number("ms");
  try {
    return {make_request(line.text("request")), reply};
  } catch (const std::invalid_argument& problem) {
    line.refuse(format_text(translated("its request: %s"), problem.what()));
  }
}

bool read_line(std::FILE* file, std::string& line) {
  char* text = nullptr;
  std::size_t room = 0;
  const ssize_t size = getline(&text, &room, file);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
  line.assign(size > 0 ? text : "", size > 0 ? static_cast<std::size_t>(size) : 0);
  return size > 0;
}

void check_heading(const std::string& path, const std::string& line) {
  const Json json(cJSON_Parse(line.c_str()));
  const cJSON* format = cJSON_GetObjectItemCaseSensitive(json.get(), "session");
  if (!cJSON_IsNumber(format))
    throw SessionError(format_text(
        translated("%s, line 1: this is no recorded session; name a file that --record wrote"),
        path.c_str()));
  if (format->valueint != kFormat)
    throw SessionError(format_text(
        translated("%s, line 1: another version of this program recorded it; use that one"),
        path.c_str()));
}

}  // namespace

SessionWriter::SessionWriter(std::string file_path, const std::string& library)
    : path(std::move(file_path)), file(create(path)) {
  const Json heading = new_object();
  cJSON_AddNumberToObject(heading.get(), "session", kFormat);
  add_text(heading.get(), "notice", kNotice);
  add_text(heading.get(), "at", time_of_day());
  add_text(heading.get(), "library", readable_request(library));
  write_line(compact_json(heading.get()));
}

void SessionWriter::add(const RecordedCall& call) {
  const Json line = new_object();
  add_text(line.get(), "at", time_of_day());
  add_text(line.get(), "name", call.request.name);
  add_text(line.get(), "request", call.request.page);
  add_text(line.get(), "command", call.request.command);
  add_text(line.get(), "reply", call.reply.text);
  cJSON_AddBoolToObject(line.get(), "by_library", static_cast<cJSON_bool>(call.reply.by_library));
  cJSON_AddNumberToObject(line.get(), "ms", std::round(call.reply.milliseconds * 100) / 100);
  write_line(compact_json(line.get()));
  ++calls;
}

void SessionWriter::write_line(const std::string& json) {
  if (std::fputs((json + "\n").c_str(), file.get()) < 0 || std::fflush(file.get()) != 0)
    throw SessionError(
        format_text(translated("%s: %s; it holds %d calls, and the last one is missing"),
                    path.c_str(), std::strerror(errno), calls));
}

std::vector<RecordedCall> read_session(const std::string& path) {
  std::string reason;
  const UniqueFile file = open_regular(path.c_str(), "r", reason);
  if (!file)
    throw SessionError(format_text(translated("%s: %s; name a file that --record wrote"),
                                   path.c_str(), reason.c_str()));
  std::string text;
  read_line(file.get(), text);
  check_heading(path, text);
  std::vector<RecordedCall> calls;
  for (int number = 2; read_line(file.get(), text); ++number)
    calls.push_back(read_call(SessionLine(path, number, text)));
  if (calls.empty())
    throw SessionError(format_text(translated("%s holds no call; record one"), path.c_str()));
  return calls;
}
