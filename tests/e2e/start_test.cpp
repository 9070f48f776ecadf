// Starting the service: names, messages, files, failures.

#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "tests/support/checked.h"
#include "tests/support/service_test.h"

namespace fs = std::filesystem;

namespace {

using StartTest = ServiceTest;

TEST_F(StartTest, ReadersAndSettingsBesideTheProgramAreFoundHoweverItIsNamed) {
  for (const char* name : {"", "./bin/quorvelserver", "bin/quorvelserver", "quorvelserver"}) {
    start({"functions"}, {}, name);
    expect_replies(
        {{echo_request(1), echo_reply(1)},
         {R"({"fid":"getconfig"})", R"({"result":"true","ip":"192.168.100.100","port":"47392"})"}});
    TearDown();
  }
}

TEST_F(StartTest, PageIsServedAndTheStartIsReported) {
  start();
  const std::string upgrade = http(
      "GET / HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade, HTTP2-Settings\r\n"
      "Upgrade: h2c\r\nHTTP2-Settings: AAMAAABkAAQAAP__\r\n\r\n");
  EXPECT_EQ(0U, upgrade.rfind("HTTP/1.1 200", 0)) << "idle, it is not kept either: " << upgrade;
  const std::string response = http("GET / HTTP/1.0\r\n\r\n");
  EXPECT_EQ(0U, response.rfind("HTTP/1.0 200", 0)) << response;
  EXPECT_NE(std::string::npos, response.find("content-security-policy:")) << response;
  EXPECT_EQ(read_file(folder.path() / "mount-origin/index.html"),
            response.substr(response.find("\r\n\r\n") + 4));
  EXPECT_TRUE(fs::exists(folder.path() / "hostname.txt"));
  EXPECT_TRUE(said("Starting Orvex WebSocket Server Version 3.5.0.01 of Brennic\n"));
  EXPECT_TRUE(said("localhost port:" + std::to_string(port) + " for protocols ws .\n"));
  ask("{}");
  const std::string peer = "127.0.0.1, http response: 0";
  EXPECT_TRUE(said("Connected client ip = "));
  EXPECT_LT(daemon->errors().find(peer), daemon->errors().rfind(peer)) << "connecting and asking";
  EXPECT_EQ(0, daemon->stop());
  EXPECT_FALSE(said("uninit")) << "the process ends, and with it what the reader holds";
}

TEST_F(StartTest, StrictHostCheckRefusesWhatBrowsersSend) {
  start({"functions"}, {"-h"});
  EXPECT_THROW(connect(), std::runtime_error);
  options.host = "default:" + std::to_string(port);
  EXPECT_NO_THROW(connect());
  EXPECT_EQ(0, daemon->stop());
}

TEST_F(StartTest, LogLevelSelectsTheMessages) {
  const struct {
    std::vector<std::string> arguments;
    bool errors;
    bool progress;
  } rows[] = {{{}, true, true},
              {{"-d1"}, true, false},
              {{"-d", "1024"}, false, true},
              {{"-d", "x"}, false, false},
              {{"-d"}, false, false}};
  for (const auto& row : rows) {
    start({"functions"}, row.arguments);
    EXPECT_EQ(row.errors, said("create daemon ok...")) << testing::PrintToString(row.arguments);
    EXPECT_EQ(row.progress, said("Server Initializing")) << testing::PrintToString(row.arguments);
    TearDown();
  }
}

TEST_F(StartTest, ServiceIniIsReadWithinItsLimits) {
  for (const char* name : {"one.so", "reader", "last.so", "none.so"})
    fs::copy(TEST_READERS "/functions.so", folder.path() / "bin" / name);
  const std::string longest = "/" + std::string(195, 'd');
  sections = "[REGISTER]\nlib1=one.so\nlib2=reader\nlib3=" + longest + "d.so\nlib4=" + longest +
             ".so\nlib20=last.so\nlib21=none.so\n";
  start({});
  for (const char* text :
       {"loading begin =one.so\n", "loading begin =last.so\n", "lib2=reader names no .so file",
        "lib3 is longer than 199 characters", "\"lib21=none.so\": there is no such key"})
    EXPECT_TRUE(said(text)) << text;
  EXPECT_TRUE(said("loading begin =" + longest));
  EXPECT_FALSE(said("loading begin =reader") || said("loading begin =none.so"));
}

TEST_F(StartTest, FaultsOfBothFilesAreToldInTheCharacterSetAskedFor) {
  const ServiceFolder place(QUORVEL_STAGE, "读卡");
  const std::string bin = place.path() / "bin/";
  write_file(place.server_ini(), gbk("[SERVER]\nSERVER_IP=卡\n"));
  for (const char* charset : {"utf-8", "gbk"}) {
    place.write_service_ini({"读卡库.so"}, port, std::string("错=1\n[LOG]\ncharset=") + charset);
    DaemonProcess service(place);
    service.wait_until_listening(port);
    const std::string all = service.output() + service.errors();
    const std::string text = *charset == 'g' ? utf8(all) : all;
    for (const std::string& line :
         {"addlib ======" + bin + "读卡库.so",
          "失败，请检查读卡环境！" + bin + "读卡库.so: cannot open",
          bin + "quorvel_service.ini: line 5, \"错=1\": there is no such key",
          bin + "quorvel.ini has no line SERVER_PORT=",
          bin + "quorvel.ini: [SERVER] SERVER_IP=卡 is no dotted IPv4 address"})
      EXPECT_NE(text.find(line), std::string::npos) << line << " is not in\n" << text;
  }
}

TEST_F(StartTest, StartThatFailsEndsWithStatusOneAndNamesTheCause) {
  const TcpSocket other = TcpSocket::listen(1);
  const fs::path ini = folder.service_ini();
  const fs::path key = folder.path() / "localhost-100y.key";
  const fs::path certificate = folder.path() / "localhost-100y.cert";
  const std::vector<std::string> plain;
  const std::vector<std::string> tls = {"-s"};
  const auto use = [this](uint16_t listening) { folder.write_service_ini({}, listening); };
  struct Row {
    std::string cause;
    const std::vector<std::string>& arguments;
    std::function<void()> prepare;
  };
  std::vector<Row> rows = {
      {"port " + std::to_string(other.local_port()) + " is taken", plain,
       [&] { use(other.local_port()); }},
      {"localhost-100y.cert can't be read", tls, [&] { use(port); }},
      {"localhost-100y.cert can't be read in the working directory (it is no regular file)", tls,
       [&] { checked(mkfifo(certificate.c_str(), 0600), "mkfifo"); }},
      {"localhost-100y.key can't be read in the working directory (No such file", tls,
       [&] {
         fs::remove(certificate);
         folder.make_certificate();
         fs::remove(key);
       }},
      {"localhost-100y.key is not the key of localhost-100y.cert", tls,
       [&] {
         folder.make_certificate();
         const std::string first = read_file(key);
         folder.make_certificate();
         write_file(key, first);
       }},
      {"localhost-100y.key holds no key", tls, [&] { write_file(key, "broken"); }},
      {"localhost-100y.cert holds no certificate", tls, [&] { write_file(certificate, "broken"); }},
      {ini.string() + " names no port in line 2, \"localport = 47392\"", plain,
       [&] { write_file(ini, "[SERVER]\nlocalport = 47392\n"); }},
      {ini.string() + " can't be read (No such file or directory)", plain,
       [&] { fs::remove(ini); }},
      {ini.string() + " can't be read (it is no regular file)", plain,
       [&] { checked(mkfifo(ini.c_str(), 0600), "mkfifo"); }},
  };
  if (geteuid() == 0) {
    // Without root's right to open the ports below 1024.
    rows.push_back({"port 443 may not be opened by this user", plain, [&] {
                      fs::remove(ini);
                      use(443);
                      start_by_shell("exec setpriv --bounding-set=-net_bind_service bin/service");
                    }});
  }
  for (const Row& row : rows) {
    row.prepare();
    daemon.emplace(folder, row.arguments);
    EXPECT_EQ(1, daemon->process().wait());
    EXPECT_TRUE(said("Server init failed\n") && said(row.cause)) << row.cause << "\n"
                                                                 << daemon->errors();
  }
}

TEST_F(StartTest, WorkingDirectoryNameSelectsTheSharedMemorySegment) {
  constexpr key_t kVariantKey = 95230001;
  shmctl(shmget(kVariantKey, 0, 0), IPC_RMID, nullptr);
  const ServiceFolder variant(QUORVEL_STAGE, "quorvelkglserver");
  const DaemonProcess started(variant);
  shmid_ds segment{};
  ASSERT_EQ(0, shmctl(shmget(kVariantKey, 0, 0), IPC_STAT, &segment));
  EXPECT_EQ(4096U, segment.shm_segsz);
  EXPECT_EQ(0666, segment.shm_perm.mode & 0777);
}

}  // namespace
