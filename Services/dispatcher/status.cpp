#include "Services/dispatcher/status.h"

#include <algorithm>
#include <string_view>

#include "libs/function_list.h"
#include "util/json/json_text.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/utf8.h"

namespace {

using State = LibraryCondition::State;

// Bytes, so that twenty libraries always fit.
constexpr std::size_t kLongestFile = 99;
constexpr std::size_t kLongestReason = 299;

/// What the reply has beside the names of sites.
constexpr std::size_t kAccessFrame =
    std::string_view(R"(,"access":{"listen":"loopback","sites":[],"truncated":"true"})").size();
constexpr std::string_view kTruncated = R"(,"truncated":"true")";

constexpr std::string_view state_name(State state) {
  switch (state) {
    case State::kReady:
      return "ready";
    case State::kWorking:
      return "working";
    case State::kRestarting:
      return "restarting";
    case State::kFailed:
      return "failed";
  }
  return "";
}

bool serves(const LibraryStatus& library) {
  return library.condition.state == State::kReady || library.condition.state == State::kWorking;
}

constexpr bool is_path_byte(char c) {
  constexpr std::string_view kOthers = "/._-+~@%=";
  return static_cast<unsigned char>(c) >= 0x80 || is_digit(c) ||
         (ascii_lower(c) >= 'a' && ascii_lower(c) <= 'z') ||
         kOthers.find(c) != std::string_view::npos;
}

/// The text (UTF-8) without the folders of the paths in it: they may tell of the user.
std::string without_folders(std::string text) {
  for (std::size_t at = text.find('/'); at != std::string::npos; at = text.find('/', at)) {
    std::size_t last = at;
    for (std::size_t i = at; i < text.size() && is_path_byte(text[i]); ++i)
      if (text[i] == '/') last = i;
    text.erase(at, last + 1 - at);
  }
  return text;
}

/// What a library, or a file's name, says: of any encoding and length, with any bytes.
std::string shortened(const Utf8& foreign, std::size_t longest) {
  std::string text = without_folders(foreign.bytes());
  std::replace_if(text.begin(), text.end(), is_control, ' ');
  text.resize(std::min(text.find_last_not_of(' ') + 1, text.size()));
  return std::string(cut_utf8(text, longest));
}

std::string quoted(std::string_view utf8) {
  std::string json = "\"";
  append_escaped(json, utf8, Charset::kUtf8);
  return json + '"';
}

std::string member(std::string_view name, std::string_view utf8) {
  return std::string(",\"").append(name).append("\":").append(quoted(utf8));
}

/// The file's name in the path. No byte of a GBK character is a "/".
std::string_view file_name(std::string_view path) { return path.substr(path.rfind('/') + 1); }

/// What is always there.
std::string essentials(const LibraryStatus& library) {
  const LibraryCondition& condition = library.condition;
  std::string json = "\"key\":" + quoted(library.key);
  json += member("file", shortened(shown(file_name(library.path)), kLongestFile));
  json += member("state", state_name(condition.state));
  const bool isolated = library.limit.count() > 0;
  json += member("isolated", isolated ? "true" : "false");
  if (isolated) json += member("limit", std::to_string(library.limit.count()));
  json += member("restarts", std::to_string(condition.restarts));
  return json + member("waiting", std::to_string(condition.waiting_calls));
}

std::string reason(const LibraryStatus& library) {
  if (library.condition.state != State::kFailed) return {};
  // Its own path first: where one ends that holds blanks can't be told.
  std::string text = shown(library.condition.reason).bytes();
  const std::string path = shown(library.path).bytes();
  const std::string_view file = file_name(path);
  for (std::size_t at = path.empty() ? std::string::npos : text.find(path); at != std::string::npos;
       at = text.find(path, at + file.size()))
    text.replace(at, path.size(), file);
  return member("reason", shortened(Utf8(text), kLongestReason));
}

std::string functions(const LibraryStatus& library) {
  std::string json = ",\"functions\":[";
  for (const std::string& name : function_names(library.functions)) {
    if (json.back() != '[') json += ',';
    json += quoted(shown(GbkView(name)).bytes());
  }
  return json + ']';
}

/// Who may use the service, in at most kAccessFrame bytes and `room` for the sites.
std::string access_member(const AccessRules& access, std::size_t room) {
  std::string json =
      std::string(R"(,"access":{"listen":")") + (access.loopback_alone ? "loopback\"" : "all\"");
  if (!access.sites_limited) return json + '}';
  std::string sites;
  bool whole = true;
  for (const AllowedSite& site : access.sites) {
    const std::string next = (sites.empty() ? "" : ",") + quoted(site.text);
    whole = whole && sites.size() + next.size() <= room;
    if (whole) sites += next;
  }
  json += ",\"sites\":[" + sites + ']';
  return json.append(whole ? std::string_view() : kTruncated) + '}';
}

}  // namespace

std::string status_reply(const std::vector<LibraryStatus>& libraries, const AccessRules& access,
                         std::chrono::seconds uptime, std::size_t size) {
  const bool ready = !libraries.empty() && std::all_of(libraries.begin(), libraries.end(), serves);
  std::string reply = R"({"result":"true")" + member("version", QUORVEL_VERSION);
  reply += member("uptime", std::to_string(uptime.count()));
  reply += member("ready", ready ? "true" : "false");
  constexpr std::string_view kLibraries = ",\"libraries\":[";

  constexpr std::size_t kBrackets = 3;  // of a library, and a comma
  std::vector<std::string> parts;
  std::size_t length = reply.size() + kAccessFrame + kLibraries.size() + 2;
  for (const LibraryStatus& library : libraries) {
    parts.push_back(essentials(library));
    length += parts.back().size() + kTruncated.size() + kBrackets;
  }
  std::vector<bool> whole(parts.size(), true);
  for (const auto addition : {reason, functions}) {
    for (std::size_t i = 0; i < parts.size(); ++i) {
      const std::string json = addition(libraries[i]);
      const bool fits = length + json.size() < size;
      if (fits) {
        parts[i] += json;
        length += json.size();
      }
      whole[i] = whole[i] && fits;
    }
  }
  reply += access_member(access, size - 1 - length);
  reply += kLibraries;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    reply += i == 0 ? "{" : ",{";
    reply.append(parts[i]).append(whole[i] ? std::string_view() : kTruncated) += '}';
  }
  return reply + "]}";
}
