#include "libs/lib_manager.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "libs/funlib.h"
#include "tests/support/text.h"
#include "util/text/messages.h"

namespace {

const unsigned char* bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

bool is_loaded(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

const std::string kFirst = TEST_READERS "/first.so";
const std::string kSecond = TEST_READERS "/second.so";
const std::string kInitFails = TEST_READERS "/init_fails.so";

class LibManagerTest : public testing::Test {
 protected:
  void TearDown() override {
    for (const std::string& path : {kFirst, kSecond}) registry.dellib(path.c_str());
  }
  bool add(const std::string& path) { return registry.addlib(path.c_str(), errtext); }
  std::string call(const char* fid) {
    unsigned char reply[kReplySize] = {};
    result = registry.call_cmd(bytes(fid), bytes("{}"), reply);
    return reinterpret_cast<const char*>(reply);
  }

  LibManager registry;
  char errtext[kErrorTextSize] = {};
  int result = -1;
};

TEST_F(LibManagerTest, RoutesToTheFirstPathThatDeclaresTheFunctionUntilItIsTakenOut) {
  EXPECT_TRUE(add(kSecond));
  EXPECT_TRUE(add(kFirst));
  EXPECT_EQ(call("Echo"), R"({"result":"true","fid":"echo","reader":"first","command":{}})");
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(registry.dellib("no such path"));
  testing::internal::CaptureStdout();
  EXPECT_TRUE(registry.dellib(kFirst.c_str()));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "uninit of first\n");
  EXPECT_FALSE(is_loaded(kFirst));
  EXPECT_NE(call("echo").find("second"), std::string::npos);
  registry.dellib(kSecond.c_str());
  EXPECT_EQ(call("echo"), failure(messages::kNotSupported));
  EXPECT_EQ(result, 0);
}

TEST_F(LibManagerTest, LoadsEachPathOnce) {
  EXPECT_TRUE(add(kFirst));
  EXPECT_FALSE(add(kFirst));
  EXPECT_EQ(errtext, kFirst + " loaded! \n");
  EXPECT_NE(call("echo").find("first"), std::string::npos);
}

TEST_F(LibManagerTest, ClosesALibraryThatDoesNotStart) {
  EXPECT_FALSE(add(kInitFails));
  EXPECT_EQ(errtext, failure(gbk("初始化" + kInitFails + "失败 初始化失败. ")));
  EXPECT_FALSE(is_loaded(kInitFails));
}

TEST_F(LibManagerTest, StartsOverFromTheServiceFile) {
  EXPECT_TRUE(add(kFirst));
  EXPECT_TRUE(registry.reinit(errtext)) << "there is no such file beside this program";
  EXPECT_FALSE(is_loaded(kFirst));
  EXPECT_EQ(registry.listening_port(), 0);
}

TEST_F(LibManagerTest, RefusesWhatIsMissing) {
  unsigned char reply[kReplySize] = {};
  EXPECT_EQ(registry.call_cmd(nullptr, bytes("{}"), reply), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(reply), failure(messages::kNotSupported));
  EXPECT_EQ(registry.call_cmd(bytes("echo"), bytes("{}"), nullptr), 0);
}

TEST(FunlibTest, SaysWhatItLacks) {
  char errtext[kReplySize] = {};
  unsigned char reply[kReplySize] = {};
  Funlib library(kFirst.c_str());
  EXPECT_EQ(library.call_cmd(bytes("echo"), bytes("{}"), reply), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(reply), failure(messages::kNotInitialised));
  EXPECT_TRUE(library.init(errtext));
  EXPECT_FALSE(library.init(errtext));
  EXPECT_EQ(errtext, kFirst + gbk("动态库已经加载过！"));
  EXPECT_FALSE(Funlib("").init(errtext));
  EXPECT_STREQ(errtext, messages::kNoLibraryName);
  EXPECT_FALSE(Funlib(std::string(400, 'l').c_str()).init(errtext)) << "a name that does not fit";
}

}  // namespace
