#include "tools/libcheck/advice.h"

#include <algorithm>
#include <cmath>

#include "util/language/language.h"
#include "util/text/format.h"

namespace {

constexpr int kUsualSeconds = 30;
/// A slow reader, or a person who holds the card wrongly first, takes longer than the check did.
constexpr double kMargin = 5;

int suggested_seconds(const Report& report) {
  double longest_ms = 0;
  for (const Finding& finding : report.all())
    longest_ms = std::max(longest_ms, finding.milliseconds);
  return std::max(kUsualSeconds, static_cast<int>(std::ceil(kMargin * longest_ms / 1000)));
}

}  // namespace

void advise_isolation(Report& report) {
  const std::string line = format_text(
      translated("\"libN=%d\" under [ISOLATED] of quorvel_service.ini"), suggested_seconds(report));
  const bool faulty = report.count(Level::failure) > 0;
  report.begin_group(translated("Advice"));
  report.add(
      {Level::ok, "isolation",
       format_text(faulty ? translated("if it must be used before it is mended: %s, where its "
                                       "faults cost one reply each")
                          : translated("write %s: what this check could not see then costs "
                                       "one reply"),
                   line.c_str())});
}
