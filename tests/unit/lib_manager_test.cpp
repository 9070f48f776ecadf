#include "libs/lib_manager.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "libs/funlib.h"
#include "libs/restart_pause.h"
#include "tests/support/text.h"
#include "util/os/program_path.h"
#include "util/text/bytes.h"
#include "util/text/messages.h"

namespace {

bool is_loaded(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

const std::string kFirst = TEST_READERS "/first.so";
const std::string kSecond = TEST_READERS "/second.so";
const std::string kInitFails = TEST_READERS "/init_fails.so";

TEST(LibManager, RoutesUntilALibraryIsTakenOutAndStartsOver) {
  LibManager registry;
  char errtext[kErrorTextSize] = {};
  int result = -1;
  const auto call = [&](const char* fid) {
    unsigned char reply[kReplySize] = {};
    result = registry.call_cmd(as_bytes(fid), as_bytes("{}"), reply);
    return std::string(reinterpret_cast<const char*>(reply));
  };
  EXPECT_TRUE(registry.addlib(kSecond.c_str(), errtext));
  EXPECT_TRUE(registry.addlib(kFirst.c_str(), errtext));
  EXPECT_FALSE(registry.addlib(kInitFails.c_str(), errtext));
  EXPECT_FALSE(is_loaded(kInitFails));
  EXPECT_EQ(call("Echo"), R"({"result":"true","fid":"echo","reader":"first","command":{}})");
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(registry.dellib("no such path"));
  testing::internal::CaptureStdout();
  EXPECT_TRUE(registry.dellib(kFirst.c_str()));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "uninit of first\n");
  EXPECT_FALSE(is_loaded(kFirst));
  EXPECT_NE(call("echo").find("second"), std::string::npos);
  EXPECT_TRUE(registry.reinit({}, errtext));
  EXPECT_FALSE(is_loaded(kSecond));
  EXPECT_EQ(call("echo"), failure(messages::kNotSupported.bytes()));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(call(nullptr), failure(messages::kNotSupported.bytes()));
  EXPECT_EQ(registry.call_cmd(as_bytes("echo"), as_bytes("{}"), nullptr), 0);
}

TEST(RestartPause, DoublesUpToHalfAMinuteAndBeginsAnew) {
  RestartPause pause;
  for (const int seconds : {1, 2, 4, 8, 16, 30, 30}) EXPECT_EQ(pause.next().count(), seconds);
  pause.reset();
  EXPECT_EQ(pause.next().count(), 1);
}

TEST(Funlib, SaysWhatItLacks) {
  char errtext[kReplySize] = {};
  unsigned char reply[kReplySize] = {};
  Funlib library(kFirst.c_str());
  EXPECT_EQ(library.call_cmd(as_bytes("echo"), as_bytes("{}"), reply), 0);
  EXPECT_EQ(reinterpret_cast<const char*>(reply), failure(messages::kNotInitialised.bytes()));
  EXPECT_TRUE(library.init(errtext));
  EXPECT_FALSE(library.init(errtext));
  EXPECT_EQ(errtext, kFirst + gbk("动态库已经加载过！"));
  EXPECT_FALSE(Funlib("").init(errtext));
  EXPECT_EQ(errtext, messages::kNoLibraryName.bytes());
  EXPECT_FALSE(Funlib(std::string(400, 'l').c_str()).init(errtext)) << "a name that does not fit";
  char path[8] = "????";
  EXPECT_TRUE(getfilepath(path, "/a/b.so", sizeof path));
  EXPECT_STREQ(path, "/a/b.so");
  EXPECT_FALSE(getfilepath(path, "/a/bb.so", sizeof path));
  EXPECT_STREQ(path, "");
}

}  // namespace
