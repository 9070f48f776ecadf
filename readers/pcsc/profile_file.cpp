#include "readers/pcsc/profile_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>

#include "quorvel_reader.h"
#include "readers/common/failure.h"
#include "readers/pcsc/functions.h"
#include "readers/pcsc/step_syntax.h"
#include "readers/pcsc/words.h"
#include "util/text/ascii.h"

namespace {

constexpr std::string_view kSettings = "PCSC";
constexpr std::string_view kMemberKey = "member.";
constexpr std::size_t kLongestList = QUORVEL_ANSWER_SIZE / 2 - 1;
constexpr std::size_t kLargestFile = 1 << 20;

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

/// Whether a request can carry the name to this library.
bool is_function_name(std::string_view name) {
  const auto allowed = [](char c) {
    return is_digit(c) || (c >= 'a' && c <= 'z') || c == '.' || c == '_' || c == '-';
  };
  return !name.empty() && name.size() < QUORVEL_NAME_SIZE &&
         std::all_of(name.begin(), name.end(), allowed) && name != "config" &&
         name != "getconfig" && name.rfind(kOwnFunctions, 0) != 0;
}

class ProfileParser {
 public:
  explicit ProfileParser(std::vector<std::string>& mistakes_found) : mistakes(mistakes_found) {}

  ProfileSet parse(std::string_view text) {
    while (!text.empty()) {
      const std::string_view whole = text.substr(0, text.find('\n'));
      text.remove_prefix(std::min(text.size(), whole.size() + 1));
      ++line;
      try {
        read_line(trim(whole));
      } catch (const Mistake& mistake) {
        report(mistake.what());
      }
    }
    end_section();
    check_list();
    return std::move(set);
  }

 private:
  void report(const std::string& text) {
    mistakes.push_back("第" + std::to_string(line) + "行" +
                       (section.empty() ? "" : " [" + section + "]") +
                       (key.empty() ? "" : " " + key) + "：" + text);
  }

  void read_line(std::string_view text) {
    if (text.empty() || text[0] == ';') return;
    if (text[0] == '[') return open_section(text);
    const std::size_t equals = text.find('=');
    key = trim(text.substr(0, equals));
    if (equals == std::string_view::npos) throw Mistake("缺少“=”；注释以“;”开头");
    const std::string_view value = trim(text.substr(equals + 1));
    if (value.empty()) throw Mistake("缺少取值");
    if (section.empty()) throw Mistake("之前应有节，如[my-card]");
    if (in_settings) return read_setting(value);
    if (in_function) return read_function_key(value);
    if (!set.profiles.empty()) read_card_key(value);
  }

  void open_section(std::string_view text) {
    end_section();
    key.clear();
    in_settings = false;
    in_function = true;  // until the name says otherwise: keys below a bad name say nothing more
    const std::size_t close = text.find(']');
    section = trim(text.substr(1, close == std::string_view::npos ? close : close - 1));
    if (close != text.size() - 1) throw Mistake("节名应写作[名称]，之后不可有其他内容");
    Words words(section);
    const std::string id(words.next());
    const std::string function(words.next());
    if (id.empty() || !words.empty()) throw Mistake("节名应为[卡片]或[卡片 功能]");
    in_settings = section == kSettings;
    in_function = !in_settings && !function.empty();
    if (in_settings) return;
    if (!seen.insert(section).second) throw Mistake("该节已出现过，请合并");
    if (function.empty()) {
      set.profiles.emplace_back();
      set.profiles.back().id = set.profiles.back().name = id;
    } else {
      open_function(id, function);
    }
  }

  void open_function(const std::string& id, const std::string& function) {
    if (set.profiles.empty() || set.profiles.back().id != id)
      throw Mistake("之前应为[" + id + "]及其功能的节");
    if (!is_function_name(function))
      throw Mistake("功能名应为小写字母、数字和“.-_”，不可为config、getconfig，不可以" +
                    std::string(kOwnFunctions) + "开头");
    set.profiles.back().functions.emplace_back();
    set.profiles.back().functions.back().name = function;
    function_open = true;
  }

  /// What a section needs shows only at its end.
  void end_section() {
    key.clear();
    const bool is_sound =
        mistakes.size() == mistakes_before;  // else a further one may follow from it
    if (is_sound && function_open) {
      const CardFunction& function = set.profiles.back().functions.back();
      if (function.steps.empty()) report("缺少step");
      if (function.members.empty()) report("缺少member");
    } else if (is_sound && !in_settings && !in_function && !section.empty()) {
      const Profile& profile = set.profiles.back();
      if (profile.atrs.empty() && profile.aid.empty()) report("缺少atr或aid，无从识别卡片");
    }
    function_open = false;
    mistakes_before = mistakes.size();
  }

  void read_setting(std::string_view value) {
    if (key != "transmit") throw Mistake("未知的键，可用：transmit");
    if (value != "yes" && value != "no") throw Mistake("应为yes或no");
    set.transmit = value == "yes";
  }

  void read_card_key(std::string_view value) {
    Profile& profile = set.profiles.back();
    if (key == "name") {
      profile.name = value;
    } else if (key == "atr") {
      profile.atrs.push_back(parse_atr(value));
    } else if (key == "aid") {
      if (!profile.aid.empty()) throw Mistake("aid只能有一个");
      Words words(value);
      profile.aid = words.bytes("aid", 5, 16);
      if (!words.empty()) throw Mistake("多余的“" + std::string(words.peek()) + "”，请删除");
    } else {
      throw Mistake("未知的键，可用：name、atr、aid");
    }
  }

  void read_function_key(std::string_view value) {
    if (!function_open) return;  // the section's own mistake has been reported
    CardFunction& function = set.profiles.back().functions.back();
    const bool is_member = key.rfind(kMemberKey, 0) == 0 && key.size() > kMemberKey.size();
    if (key != "step" && !is_member) throw Mistake("未知的键，可用：step、member.名称");
    if (is_member) {
      const std::string name = key.substr(kMemberKey.size());
      for (const Member& member : function.members)
        if (member.name == name) throw Mistake("该键已出现过，请删除其一");
      function.members.push_back(parse_member(name, value, function.steps));
      return;
    }
    Step step = parse_step(value);
    for (const Step& other : function.steps)
      if (!step.result.empty() && other.result == step.result)
        throw Mistake("名称“" + step.result + "”已用过，请另取");
    function.steps.push_back(std::move(step));
  }

  void check_list() {
    if (listed_functions(set).size() <= kLongestList) return;
    section.clear();
    report("功能名共超过" + std::to_string(kLongestList) + "个字节，请减少或缩短");
  }

  std::vector<std::string>& mistakes;
  ProfileSet set;
  std::set<std::string, std::less<>> seen;  // sections
  std::size_t line = 0;
  std::size_t mistakes_before = 0;  // this section
  std::string section;
  std::string key;
  bool in_settings = false;
  bool in_function = false;
  bool function_open = false;  // the last function of the last profile is the one of this section
};

std::string read_whole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(in), {});
  if (!in) throw Failure(failures::kCardFile, path);
  if (text.size() > kLargestFile) throw Failure(failures::kCardFile, path + " > 1 MiB");
  return text;
}

}  // namespace

ProfileSet parse_profiles(std::string_view text, std::vector<std::string>& mistakes) {
  static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark)
    text.remove_prefix(kByteOrderMark.size());
  return ProfileParser(mistakes).parse(text);
}

const ProfileSet& ProfileFile::current() {
  if (!file.changed()) return profiles;
  std::vector<std::string> mistakes;
  ProfileSet fresh = parse_profiles(read_whole(file.path()), mistakes);
  if (!mistakes.empty()) {
    static constexpr std::size_t kRoom = 500;  // in UTF-8, of a reply or of the log's line
    std::string all = file.path();
    for (const std::string& mistake : mistakes) all += "；" + mistake;
    throw Failure(failures::kCardFile, all, kRoom);
  }
  profiles = std::move(fresh);
  file.seen();
  return profiles;
}
