#include "access/access_settings.h"

#include <gtest/gtest.h>

#include "server/service_settings.h"
#include "tests/support/memory_file.h"

namespace {

struct Row {
  const char* content;
  const char* summary;
  const char* said;  ///< a part of what the log says; "" when it says nothing
};

#define SITE "[ACCESS]\norigin1=https://a.example\n"
#define ANY "any page on any machine"
#define NOBODY "no page but the service's own, on "
#define LABEL_OF_63 "sixty-three-bytes-are-the-longest-label-that-a-host-name-may-ha"
#define NO_ORIGIN "no origin, and admits nobody; write it as the browser sends it"

const Row kRows[] = {
    {"[SERVER]\nlocalport=1\n[ACCESS]\n;listen=loopback\n", ANY, ""},
    {"[ACCESS]\nlisten=all\n", ANY, ""},
    {"[ACCESS]\nhost1=reader.example.org\n", ANY, ""},
    {"[ACCESS]\nlisten=loopback\n", "any page on this machine", ""},
    {"[ACCESS]\nlisten=local\n", "any page on this machine",
     "listen=local: not known, so loopback"},
    {"[ACCESS]\nlisten=\n", "any page on this machine", "write all or loopback"},
    {SITE "functions1=a,b\norigin50=http://*.B.example:80\nlisten=all\n",
     "pages of https://a.example (some functions), http://*.B.example:80, on any machine", ""},
    {SITE "origin2=https://[2001:db8::5]:8443\nfunctions2=a\n[LOG]\ncharset=gbk\n",
     "pages of https://a.example, https://[2001:db8::5]:8443 (some functions), on any machine", ""},
    {SITE "functions1= ,\n", "pages of https://a.example (some functions), on any machine",
     "functions1= ,: names no function"},
    {SITE "functions2=a\n", "pages of https://a.example, on any machine", "no site of that number"},
    {SITE "host1=reader.example.org:47392\n", "pages of https://a.example, on any machine",
     "no host name, and without effect"},
    {"[ACCESS]\norigin1=https://a.example/\n", NOBODY "any machine", NO_ORIGIN},
    {"[ACCESS]\norigin1=\n", NOBODY "any machine", NO_ORIGIN},
    {"[ACCESS]\norigin1=https://*.192.0.2.1\n", NOBODY "any machine", NO_ORIGIN},
    {"[ACCESS]\norigin1=https://" LABEL_OF_63 ".a_b\n",
     "pages of https://" LABEL_OF_63 ".a_b, on any machine", ""},
    {"[ACCESS]\norigin1=https://" LABEL_OF_63 "x.a_b\n", NOBODY "any machine", NO_ORIGIN},
    // What stands in the wrong place, or is misspelt, closes what it may have been meant to close.
    {"[ACCESS]\norigin51=https://a.example\n", NOBODY "this machine", "there is no such key"},
    {SITE "liste=loopback\n", "pages of https://a.example, on this machine", "all stays closed"},
    {SITE "function1=a\n", "pages of https://a.example (some functions), on this machine",
     "all stays closed"},
    {"[ACCESS]\nlisten loopback\n", NOBODY "this machine", "neither a section nor a key=value"},
    {"[ACCESS]\nlisten=loopback\n# nobody\n#origin1=https://a.example\n",
     "any page on this machine", "#origin1=https://a.example"},
    {"[Access]\n", NOBODY "this machine", "all stays closed"},
    {"[SERVER]\nListen = loopback\n", NOBODY "this machine", "under [ACCESS]"},
    {"[ACCESS]\nlisten=loopback\n[LOG]\n" SITE, "pages of https://a.example, on this machine",
     "the section occurs again"},
    {SITE "[LOG]\n[ACCESS]\nlisten=loopback\n", NOBODY "this machine", "all stays closed"},
};

TEST(AccessSettings, MistakesAreNamedAndNeverOpen) {
  for (const auto& [content, summary, part] : kRows) {
    SCOPED_TRACE(content);
    const MemoryFile file(content);
    testing::internal::CaptureStderr();
    const ServiceIni ini(file.path());
    ini.report(service_keys());
    const AccessRules rules = read_access(ini, 47392);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(rules.summary(), summary);
    EXPECT_NE(said.find(part), std::string::npos) << said;
    EXPECT_EQ(said.empty(), *part == '\0') << said;
  }
}

}  // namespace
