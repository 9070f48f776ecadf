// The profile file's parser: any text gives profiles that can be used, or mistakes with their
// places. Input: the file.

#include <string>
#include <vector>

#include "fuzz/input.h"
#include "readers/pcsc/profile_file.h"

namespace {

void check(const CardFunction& function) {
  require(!function.name.empty() && !function.steps.empty() && !function.members.empty(),
          "a function is whole");
  for (const Member& member : function.members) {
    require(member.step < function.steps.size(), "a member's step exists");
    const Step& step = function.steps[member.step];
    require(!step.result.empty(), "a member's step reads");
    if (step.verb != Step::Verb::kReadRecords) continue;
    require(!member.cuts.empty() && member.cuts[0].kind == Cut::Kind::kRecord &&
                member.cuts[0].first >= step.first &&
                member.cuts[0].first < step.first + step.count,
            "a member's record is one that is read");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = Input(data, size).rest();
  std::vector<std::string> mistakes;
  const ProfileSet profiles = parse_profiles(text, mistakes);
  for (const std::string& mistake : mistakes)
    require(mistake.rfind("第", 0) == 0, "a mistake names its line");
  if (!mistakes.empty()) return 0;
  for (const Profile& profile : profiles.profiles) {
    require(!profile.id.empty() && (!profile.atrs.empty() || !profile.aid.empty()),
            "a card can be known");
    for (const AtrPattern& atr : profile.atrs)
      require(!atr.value.empty() && atr.value.size() == atr.mask.size(), "pattern and mask agree");
    for (const CardFunction& function : profile.functions) check(function);
  }
  return 0;
}
