// Links, pipes and folders under the names that the service reads and writes; TLS as it is offered.

#include <sys/stat.h>

#include <functional>

#include "tests/support/checked.h"
#include "tests/support/service_test.h"

namespace fs = std::filesystem;

namespace {

class FileFaultTest : public ServiceTest {
 protected:
  static void put_pipe(const fs::path& path) {
    fs::remove(path);
    checked(mkfifo(path.c_str(), 0600), path.c_str());
  }
  static void put_link(const fs::path& target, const fs::path& path) {
    fs::remove(path);
    fs::create_symlink(target, path);
  }

  const fs::path victim = folder.path() / "victim";
};

TEST_F(FileFaultTest, HostFileIsWrittenOnlyAsAFileOfItsOwn) {
  const fs::path host_file = folder.path() / "hostname.txt";
  const std::string refused = "hostname.txt is not written: ";
  write_file(victim, "of somebody else");
  const std::pair<std::string, std::function<void()>> rows[] = {
      {refused + "it is a link", [&] { put_link(victim, host_file); }},
      {refused + "it has a second name", [&] { fs::create_hard_link(victim, host_file); }},
      {refused + "No such device or address", [&] { put_pipe(host_file); }},
      {refused + "Is a directory", [&] { fs::create_directory(host_file); }},
      {"Server RUNNING .", [&] { write_file(host_file, std::string(9000, 'x')); }},
  };
  for (const auto& [message, put] : rows) {
    fs::remove(host_file);
    put();
    start();
    EXPECT_TRUE(said(message)) << daemon->errors();
    EXPECT_EQ("of somebody else", read_file(victim)) << message;
    TearDown();
  }
  EXPECT_LT(fs::file_size(host_file), 200U) << "the old content is gone";
}

TEST_F(FileFaultTest, SettingsFileThatIsALinkOrAPipeIsLeftAlone) {
  const TcpSocket listener = TcpSocket::listen(8);
  const std::string config =
      R"({"fid":"config","ip":"127.0.0.1","port":)" + std::to_string(listener.local_port()) + "}";
  const std::string settings = "[SERVER]\nSERVER_IP=1\nSERVER_PORT=2\n";
  start();
  write_file(victim, settings);
  put_link(victim, folder.server_ini());
  EXPECT_EQ(R"({"result":"true"})", ask(config));
  EXPECT_EQ(settings, read_file(victim));
  EXPECT_TRUE(said("quorvel.ini can't be written: it is a link"));
  put_pipe(folder.server_ini());
  EXPECT_EQ(R"({"result":"true"})", ask(config));
  EXPECT_EQ(failure("打开配置文件" + folder.server_ini().string() + "失败."),
            ask(R"({"fid":"getconfig"})"));
  EXPECT_TRUE(said("quorvel.ini can't be read: it is no regular file"));
}

TEST_F(FileFaultTest, PageIsServedFromItsFolderAlone) {
  // The folder itself may be a link; that is the administrator's.
  const fs::path page = folder.path() / "mount-origin";
  const fs::path real = folder.path() / "page";
  fs::rename(page, real);
  put_link("page", page);
  write_file(victim, "of somebody else");
  fs::create_directory(real / "sub");
  write_file(real / "sub/index.html", "sub");
  put_link("index.html", real / "within.html");
  put_link("../victim", real / "out.html");
  put_link(folder.path(), real / "out");
  write_file(folder.path() / "page.html", "of somebody else");  // begins with the folder's name
  put_link("../page.html", real / "beside.html");
  put_pipe(real / "pipe.html");
  start();
  const std::pair<const char*, bool> rows[] = {
      {"index.html", true},   {"within.html", true}, {"sub/", true},          {"out.html", false},
      {"beside.html", false}, {"pipe.html", false},  {"out/page.html", false}};
  for (const auto& [name, served] : rows)
    EXPECT_EQ(served ? "HTTP/1.0 200" : "HTTP/1.0 404",
              http("GET /" + std::string(name) + " HTTP/1.0\r\n\r\n").substr(0, 12))
        << name;
  EXPECT_TRUE(said("out.html is not served: it leads out of the page's folder"));
  EXPECT_TRUE(said("pipe.html is not served: it is no regular file"));
}

TEST_F(FileFaultTest, TlsIsOfferedWithForwardSecrecyAlone) {
  folder.make_certificate({"rsa:2048"});  // with which a client might ask for RSA key exchange
  options.tls = true;
  start({"functions"}, {"-s"});
  const std::pair<std::vector<std::string>, bool> rows[] = {
      {{"-tls1_3"}, true},
      {{"-tls1_2"}, true},
      {{"-tls1_2", "-cipher", "ECDHE-RSA-CHACHA20-POLY1305"}, true},
      {{"-tls1_2", "-cipher", "AES128-GCM-SHA256:AES256-SHA:@SECLEVEL=0"}, false},
      {{"-tls1_2", "-cipher", "ECDHE-RSA-AES128-SHA:@SECLEVEL=0"}, false},
      {{"-tls1_1", "-cipher", "ALL:@SECLEVEL=0"}, false}};
  for (const auto& [choice, accepted] : rows) {
    std::vector<std::string> arguments = {"openssl", "s_client", "-connect",
                                          "127.0.0.1:" + std::to_string(port)};
    arguments.insert(arguments.end(), choice.begin(), choice.end());
    EXPECT_EQ(accepted, run_program(arguments).status == 0) << testing::PrintToString(choice);
  }
}

}  // namespace
