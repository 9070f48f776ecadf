#include "tests/pcsc/pcsc_test.h"

#include <dlfcn.h>

#include <stdexcept>

#include "quorvel_reader.h"
#include "readers/common/hex.h"
#include "tests/support/eventually.h"
#include "tests/support/text.h"

namespace fs = std::filesystem;

PcscLibrary::PcscLibrary() {
  for (const char* name : {"libquorvelpcsc.so", "pcsc_cards.ini"})
    fs::copy(fs::path(QUORVEL_STAGE "/bin") / name, folder.path() / name);
  handle = dlopen((folder.path() / "libquorvelpcsc.so").c_str(), RTLD_NOW);
  if (handle == nullptr) throw std::runtime_error(dlerror());
  std::string parameter(QUORVEL_PARAMETER_SIZE, '\0');
  if (entry<decltype(init)>("init")(parameter.data()) == 0) throw std::runtime_error("init");
}

PcscLibrary::~PcscLibrary() {
  entry<decltype(uninit)>("uninit")();
  dlclose(handle);
}

template <typename Entry>
Entry* PcscLibrary::entry(const char* name) const {
  return reinterpret_cast<Entry*>(dlsym(handle, name));
}

void PcscLibrary::write_profiles(const std::string& text) const {
  write_file(folder.path() / "pcsc_cards.ini", text);
}

std::string PcscLibrary::functions() const {
  std::string verinfo(QUORVEL_VERINFO_SIZE, '\0');
  std::string answer(QUORVEL_ANSWER_SIZE, '\0');
  std::string verextra(QUORVEL_VEREXTRA_SIZE, '\0');
  std::string error(QUORVEL_ERROR_SIZE, '\0');
  const bool success = entry<decltype(getversion)>("getversion")(
                           verinfo.data(), answer.data(), verextra.data(), error.data()) != 0;
  return success ? bytes_of_hex(answer.c_str()).value_or("") : utf8(error.c_str());
}

std::string PcscLibrary::call(const std::string& function, const std::string& data) const {
  const std::string command = R"({"data":{)" + data + R"(},"platform":"x86_64"})";
  std::string reply(QUORVEL_REPLY_SIZE, '\0');
  const bool success =
      entry<decltype(scommand)>("scommand")(function.c_str(), command.c_str(), reply.data()) != 0;
  EXPECT_EQ(success, reply.find(R"("result":"true")") != std::string::npos) << reply;
  return utf8(reply.c_str());
}

void PcscTest::wait_for_card(const std::string& present) {
  const auto seen = [&] {
    return library.call("pcsc.readers").find("00 00\",\"present\":\"" + present + "\"") !=
           std::string::npos;
  };
  ASSERT_TRUE(eventually(seen)) << library.call("pcsc.readers");
}

void PcscTest::insert(const std::string& atr, VirtualCard::Answers answers) {
  pull();
  inserted.emplace(atr, std::move(answers));
  wait_for_card();
}

void PcscTest::insert(const std::string& atr, IsoCard& card) {
  insert(atr, [&card](const std::string& command) { return card.answer(command); });
}

void PcscTest::pull() {
  if (!inserted) return;
  inserted.reset();
  wait_for_card("false");
}

std::string failed(const std::string& code) {
  return R"({"result":"false","fid":"readcardbas","errcode":")" + code + R"(","errmsg":)";
}

void expect_reply(const std::string& beginning, const std::string& reply) {
  EXPECT_EQ(beginning, reply.substr(0, beginning.size())) << reply;
}
