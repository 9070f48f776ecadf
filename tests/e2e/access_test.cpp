// Who may use the service: sites, names of the service, functions, addresses of the machine.

#include <sstream>

#include "tests/support/own_network.h"
#include "tests/support/service_test.h"

namespace {

constexpr const char* kNotAllowed = "该网站无权使用此功能！";
constexpr const char* kSites =
    "[ACCESS]\norigin1=HTTPS://Portal.Example.org\norigin2=https://*.clinic.example:8443\n"
    "functions2=echo, CardPresent\treadcardbas\norigin3=https://[2001:DB8::0:5]\n"
    "origin4=https://xn--fiq228c.example\norigin5=http://192.0.2.1\norigin6=https://*\n"
    "origin7=moz-extension://a-b\nhost1=reader.example.org\n";

class AccessTest : public ServiceTest {
 protected:
  /// The status of the answer to a request with these header lines; "" when none comes. "$" in them
  /// becomes the service's port.
  std::string status(std::string headers, bool upgrade, const char* address = "127.0.0.1") const {
    for (size_t at = 0; (at = headers.find('$', at)) != std::string::npos;)
      headers.replace(at, 1, std::to_string(port));
    const TcpSocket client = TcpSocket::connect(port, address);
    client.send("GET / HTTP/1.1\r\n" + headers + std::string(upgrade ? kUpgradeHeaders : "\r\n"));
    const std::string answer = client.receive_some();
    return answer.size() < 12 ? "" : answer.substr(9, 3);
  }
  std::string page_status(const std::string& origin) const {
    return status("Host: localhost:$\r\nOrigin: " + origin + "\r\n", true);
  }
  size_t lines_of_log(const std::string& text) const {
    const std::string log = daemon->errors();
    size_t lines = 0;
    for (size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at) ++lines;
    return lines;
  }
};

TEST_F(AccessTest, PagesOfTheNamedSitesAloneAreServed) {
  sections = kSites;
  start();
  for (const char* origin : {"https://portal.example.org", "https://PORTAL.example.org:443",
                             "https://a.clinic.example:8443", "https://a.b.clinic.example:8443",
                             "https://[2001:db8::5]", "https://xn--fiq228c.example",
                             "http://192.0.2.1", "moz-extension://a-b", "http://localhost:$"})
    EXPECT_EQ("101", page_status(origin)) << origin;
  std::istringstream refused(
      "null http://portal.example.org https://portal.example.org:8443 "
      "https://portal.example.org. https://portal.example.org/ portal.example.org "
      "https://portal.example.org.evil.example https://evilportal.example.org "
      "https://a.portal.example.org https://clinic.example:8443 https://a..clinic.example:8443 "
      "https://evilclinic.example:8443 https://a.clinic.example https://中国.example "
      "https://[2001:db8::6] https://[::ffff:192.0.2.1] http://192.0.2.10 "
      "https://portal.example.org:0443 https://portal.example.org:99999 https://* "
      "https://localhost:$ http://127.0.0.1:$ http://localhost http://evil@localhost:$ file://");
  for (std::string origin; refused >> origin;) EXPECT_EQ("403", page_status(origin)) << origin;
  for (const char* origin : {"", "https://portal.example.org\r\nOrigin: https://portal.example.org",
                             "https://portal.example.org\r\nOrigin:"})
    EXPECT_EQ("403", page_status(origin)) << origin;
  EXPECT_EQ("403", page_status("https://" + std::string(3000, 'a') + ".clinic.example:8443"));
  EXPECT_EQ("", page_status("https://" + std::string(9000, 'a') + ".clinic.example:8443"));
  EXPECT_EQ("101", status("Host: localhost\r\n", true)) << "a program on this machine";
}

TEST_F(AccessTest, ServiceIsAddressedByItsNamesAlone) {
  sections = "[ACCESS]\nhost1=reader.example.org\nhost2=[2001:db8::7]\n";
  start();
  const auto expect = [this](const std::string& headers, const char* page, const char* channel) {
    EXPECT_EQ(page, status(headers, false)) << headers;
    EXPECT_EQ(channel, status(headers, true)) << headers;
  };
  std::istringstream own(
      "localhost:$ LocalHost card.reader.localhost:$ 127.0.0.1:$ [::1]:$ [2001:DB8:0::7]:$");
  for (std::string host; own >> host;) expect("Host: " + host + "\r\n", "200", "101");
  std::istringstream foreign(
      "evil.example:$ localhost.:$ evillocalhost:$ localhost.evil.example a.reader.example.org "
      "127.0.0.2:$ localhost:1");
  for (std::string host; foreign >> host;) expect("Host: " + host + "\r\n", "403", "403");
  expect("Host: Reader.Example.Org:$\r\nOrigin: https://any.example\r\n", "200", "101");
  expect("Host: evil.example:$\r\nOrigin: http://evil.example:$\r\n", "403", "403");
  expect("Host:\r\n", "403", "403");
  expect("Host: localhost\r\nHost: localhost\r\n", "403", "403");
  expect("", "200", "");  // what waits for the service after its start sends none
}

TEST_F(AccessTest, SiteCallsTheFunctionsThatAreListedForItAlone) {
  sections = kSites;
  start();
  options.origin = "https://a.clinic.example:8443";
  expect_replies({{echo_request(1), echo_reply(1)},
                  {R"({"fid":"ECHO"})", echoed("{" + platform + "}")},
                  {R"({"fid":"getconfig"})", failure(kNotAllowed, "getconfig")},
                  {R"({"fid":"config","ip":"127.0.0.1"})", failure(kNotAllowed, "config")},
                  {R"({"fid":"echo "})", failure(kNotAllowed, "echo ")},
                  {R"({"fid":"cardpresent"})", failure("不支持该功能.", "cardpresent")},
                  {R"({"fid":7})", failure("未传入服务名！")}});
  EXPECT_EQ(ask("readcardbas").rfind(R"({"result":"true","fid":"readcardbas")", 0), 0U);
  options.origin = "https://portal.example.org";
  EXPECT_NE(ask(R"({"fid":"getconfig"})").find("true"), std::string::npos);
  TearDown();
  sections = "[ACCESS]\norigin1=https://a.example\nfunctions1=echo\n";
  start();
  options.origin = "https://a.example";
  EXPECT_EQ(failure(kNotAllowed, "readcardbas"), ask("readcardbas"));
  options.origin.clear();
}

TEST_F(AccessTest, RulesHoldOverTlsWithItsOwnScheme) {
  sections = kSites;
  folder.make_certificate();
  options.tls = true;
  start({"functions"}, {"-s"});
  const std::string own = "localhost:" + std::to_string(port);
  const std::pair<std::string, std::string> served[] = {
      {own, "https://" + own}, {own, "https://portal.example.org"}, {"reader.example.org", ""}};
  const std::pair<std::string, std::string> refused[] = {
      {own, "http://" + own}, {own, "https://evil.example"}, {"evil.example", ""}};
  for (const auto& [host, origin] : served) {
    options.host = host, options.origin = origin;
    EXPECT_EQ(echo_reply(1), ask(echo_request(1))) << host << " " << origin;
  }
  for (const auto& [host, origin] : refused) {
    options.host = host, options.origin = origin;
    EXPECT_THROW(connect(), std::runtime_error) << host << " " << origin;
  }
  options = {};
  options.tls = true;
}

TEST_F(AccessTest, RefusalIsOneLineASecondForEachOriginWithoutControlCharacters) {
  sections = kSites;
  start();
  EXPECT_TRUE(eventually(
      [this] { return said("Who may use the service: pages of HTTPS://Portal.Example.org, "); }));
  EXPECT_TRUE(said("[ACCESS] origin6=https://*: no origin"));
  const auto begin = std::chrono::steady_clock::now();
  for (int round = 0; round < 50; ++round) page_status("https://evil.example");
  const auto passed = std::chrono::steady_clock::now() - begin;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(passed).count();
  EXPECT_LE(lines_of_log("\"https://evil.example\""), static_cast<size_t>(seconds) + 1);
  page_status("https://" + std::string(90, 'x') + "\x1b[31m.example");
  EXPECT_EQ(1U, lines_of_log("\"https://" + std::string(90, 'x') + "?[\": no originN"));
  for (int number = 0; number < 200; ++number)
    page_status("https://" + std::to_string(number) + ".evil.example");
  EXPECT_LT(lines_of_log(".evil.example"), 200U) << "a page that varies its origin";
}

TEST_F(AccessTest, OtherMachinesReachTheServiceAsItsSettingsSay) {
  constexpr const char* kOutside = "192.0.2.7";
  enter_own_network();
  run_program({"ip", "address", "add", kOutside, "dev", "lo"});
  const std::string own = "Host: 192.0.2.7:$\r\n";
  start();
  EXPECT_TRUE(
      eventually([this] { return said("Who may use the service: any page on any machine\n"); }));
  EXPECT_EQ("101", status(own + "Origin: https://any.example\r\n", true, kOutside));
  TearDown();
  sections = "[ACCESS]\norigin1=https://portal.example.org\nhost1=192.0.2.7\n";
  start();
  EXPECT_EQ("101", status(own + "Origin: https://portal.example.org\r\n", true, kOutside));
  EXPECT_EQ("101", status(own + "Origin: http://192.0.2.7:$\r\n", true, kOutside));
  EXPECT_EQ("403", status(own + "Origin: https://evil.example\r\n", true, kOutside));
  EXPECT_EQ("403", status(own, true, kOutside)) << "a program on another machine";
  EXPECT_EQ("403", status("", false, kOutside));
  EXPECT_EQ("101", status("Host: [::1]:$\r\n", true, "::1"));
  TearDown();
  sections = "[ACCESS]\nlisten=loopback\n";
  for (const bool tls : {false, true}) {
    if (tls) folder.make_certificate();
    options.tls = tls;
    start({"functions"}, tls ? std::vector<std::string>{"-s"} : std::vector<std::string>{});
    // One place may be open before the other.
    EXPECT_TRUE(
        eventually([this] { return said("Who may use the service: any page on this machine\n"); }));
    EXPECT_TRUE(said("listening on ip:127.0.0.1;localhost port:"));
    EXPECT_THROW(TcpSocket::connect(port, kOutside), std::system_error);
    EXPECT_NO_THROW(TcpSocket::connect(port, "::1"));
    EXPECT_EQ(echo_reply(1), ask(echo_request(1)));
    TearDown();
  }
  const TcpSocket other = TcpSocket::listen(1, "::1", port);
  daemon.emplace(folder);
  EXPECT_EQ(1, daemon->process().wait());
  EXPECT_TRUE(said("port " + std::to_string(port) + " of ::1 is taken")) << daemon->errors();
}

}  // namespace
