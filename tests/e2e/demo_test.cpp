// The demo library in the service: what stands in its card file counts.

#include "tests/support/service_test.h"

namespace {

using DemoTest = ServiceTest;

std::string read_request(const std::string& data) {
  return R"({"fid":"readphotoref","data":{)" + data + "}}";
}

std::string fault(const std::string& code, const std::string& errmsg) {
  return R"({"result":"false","fid":"readphotoref","errcode":")" + code + R"(","errmsg":")" +
         errmsg + "\"}";
}

TEST_F(DemoTest, EditOfTheCardFileCountsFromTheNextRequestOn) {
  const auto write_cards = [&](const std::string& text) {
    write_file(folder.path() / "bin/demo_cards.ini", text);
  };
  const auto photo = [](const std::string& value) {
    return R"({"result":"true","fid":"readphotoref","data":{"photo":")" + value + "\"}}";
  };
  const Exchange unknown_person = {read_request(R"("person":"b")"),
                                   fault("2004", "卡片文件中没有此人：b")};
  write_cards("[READER]\ncharset=utf-8\ncard=a\n[a]\nname=x\nphoto=一\n");
  start({"libquorveldemo"});
  expect_replies({{read_request(""), photo("一")},
                  unknown_person,
                  {read_request(R"("person":")" + std::string(2000, 'p') + "\""),
                   fault("2004", "卡片文件中没有此人：" + std::string(120, 'p') + "...")}});
  write_cards(gbk("[READER]\ncharset=gbk\ncard=b\n[b]\nname=x\nphoto=另一\n"));
  expect_replies(
      {{read_request(""), photo("另一")}, {read_request(R"("person":"b")"), photo("另一")}});
  write_cards("[READER]\ncharset=latin1\ncard=a\n[a]\nname=x\nphoto=一\n");
  expect_replies({{read_request(""), fault("3001", "卡片文件有误：[READER] charset=latin1")}});
  write_cards("[READER]\ncharset=utf-8\ncard=a\nfault=no_card\n[a]\nname=x\n");
  expect_replies({{read_request(""), fault("1002", "未检测到卡片，请放好卡片后重试。")}});
}

}  // namespace
