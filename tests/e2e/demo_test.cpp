// The demo library in the service: what stands in its card file counts.

#include "tests/support/service_test.h"

namespace {

using DemoTest = ServiceTest;

TEST_F(DemoTest, EditOfTheCardFileCountsFromTheNextRequestOn) {
  const std::string begin = R"({"fid":"readphotoref","data":{)";
  const auto write_cards = [&](const std::string& text) {
    write_file(folder.path() / "bin/demo_cards.ini", text);
  };
  const auto photo = [](const std::string& value) {
    return R"({"result":"true","fid":"readphotoref","data":{"photo":")" + value + "\"}}";
  };
  const auto fault = [](const std::string& code, const std::string& errmsg) {
    return R"({"result":"false","fid":"readphotoref","errcode":")" + code + R"(","errmsg":")" +
           errmsg + "\"}";
  };
  write_cards("[READER]\ncharset=utf-8\ncard=a\n[a]\nname=x\nphoto=一\n");
  start({"libquorveldemo"});
  EXPECT_EQ(photo("一"), ask(begin + "}}"));
  EXPECT_EQ(fault("2004", "卡片文件中没有此人：" + std::string(120, 'p') + "..."),
            ask(begin + R"("person":")" + std::string(2000, 'p') + "\"}}"));
  write_cards(gbk("[READER]\ncharset=gbk\ncard=b\n[b]\nname=x\nphoto=另一\n"));
  EXPECT_EQ(photo("另一"), ask(begin + R"("person":"b"}})"));
  write_cards("[READER]\ncharset=latin1\ncard=a\n[a]\nname=x\nphoto=一\n");
  EXPECT_EQ(fault("3001", "卡片文件有误：[READER] charset=latin1"), ask(begin + "}}"));
  write_cards("[READER]\ncharset=utf-8\ncard=a\nfault=no_card\n[a]\nname=x\n");
  EXPECT_EQ(fault("1002", "未检测到卡片，请放好卡片后重试。"), ask(begin + "}}"));
}

}  // namespace
