#include "tests/pcsc/pcsc_test.h"

#include <stdexcept>

#include "tests/support/text.h"

PcscLibrary::PcscLibrary() {
  for (const char* name : {"libquorvelpcsc.so", "pcsc_cards.ini"})
    std::filesystem::copy(std::filesystem::path(QUORVEL_STAGE "/bin") / name, folder.path() / name);
  functions();
}

void PcscLibrary::write_profiles(const std::string& text) const {
  write_file(folder.path() / "pcsc_cards.ini", text);
}

std::string PcscLibrary::functions() {
  library.reset();
  library = std::make_unique<LocalLibrary>(folder.path() / "libquorvelpcsc.so");
  char reason[QUORVEL_ERROR_SIZE] = {};
  if (!library->init(reason)) throw std::runtime_error(utf8(reason));
  return library->functions();
}

std::string PcscLibrary::call(const std::string& function, const std::string& data) const {
  const std::string command = R"({"data":{)" + data + R"(},"platform":"x86_64"})";
  char reply[QUORVEL_REPLY_SIZE] = {};
  const bool success = library->call(function.c_str(), command.c_str(), reply) != 0;
  EXPECT_EQ(success, std::string(reply).find(R"("result":"true")") != std::string::npos) << reply;
  return utf8(reply);
}

std::string failed(const std::string& code) {
  return R"({"result":"false","fid":"readcardbas","errcode":")" + code + R"(","errmsg":)";
}

void expect_reply(const std::string& beginning, const std::string& reply) {
  EXPECT_EQ(beginning, reply.substr(0, beginning.size())) << reply;
}
