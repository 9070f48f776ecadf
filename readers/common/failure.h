#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// One reason for a failure reply. A page branches on the code, people read the text.
struct FailureKind {
  const char* name;    ///< as a card file names it in "fault"
  const char* code;    ///< "errcode" of the reply; never renumbered
  const char* errmsg;  ///< UTF-8; "%" stands for the detail
};

/// Every failure of the reader libraries, each once; causes and cures are in
/// docs/reader-library.md.
namespace failures {
inline constexpr FailureKind kNoReader{"no_reader", "1001", "未检测到读卡器，请检查连接。"};
inline constexpr FailureKind kNoCard{"no_card", "1002", "未检测到卡片，请放好卡片后重试。"};
inline constexpr FailureKind kCardRemoved{"card_removed", "1003",
                                          "读卡过程中卡片被移走，请重新放卡。"};
inline constexpr FailureKind kUnreadable{"unreadable", "1004", "卡片无法读取，请更换卡片。"};
inline constexpr FailureKind kWrongKind{"wrong_kind", "1005", "卡片类型不符：%"};
inline constexpr FailureKind kWriteRefused{"write_refused", "1006", "该卡片不允许写入。"};
inline constexpr FailureKind kReaderInUse{"reader_in_use", "1007",
                                          "读卡器正被其他程序占用，请关闭该程序后重试。"};
inline constexpr FailureKind kServiceDown{"service_down", "1008",
                                          "读卡器服务（pcscd）未运行，请联系管理员。"};
inline constexpr FailureKind kServiceDenied{"service_denied", "1009",
                                            "无权使用读卡器服务（pcscd），请联系管理员。"};
inline constexpr FailureKind kCardMute{"card_mute", "1010",
                                       "卡片无响应，请检查卡片方向，重新放卡。"};
inline constexpr FailureKind kUnknownCard{"unknown_card", "1011", "不支持该卡片，ATR：%"};
inline constexpr FailureKind kCardRefused{"card_refused", "1012",
                                          "卡片拒绝了读取，请确认卡片种类：%"};
inline constexpr FailureKind kBadCardData{"bad_card_data", "1013",
                                          "卡片中的数据有误，请更换卡片：%"};
inline constexpr FailureKind kReaderFault{"reader_fault", "1014",
                                          "读卡器故障，请重新插拔读卡器：%"};
inline constexpr FailureKind kUnknownFunction{"unknown_function", "2001", "不支持该功能：%"};
inline constexpr FailureKind kUnknownMember{"unknown_member", "2002", "data中有未知参数：%"};
inline constexpr FailureKind kBadValue{"bad_value", "2003", "参数取值无效：%"};
inline constexpr FailureKind kUnknownPerson{"unknown_person", "2004", "卡片文件中没有此人：%"};
inline constexpr FailureKind kCardFile{"card_file", "3001", "卡片文件有误：%"};
inline constexpr FailureKind kReplyTooLong{"reply_too_long", "3002", "卡片资料超出应答长度。"};
}  // namespace failures

/// The failure that a card file names, or null.
const FailureKind* find_failure(std::string_view name);

/// Ends the handling of a request with a failure reply. what() is the reply's "errmsg", UTF-8.
class Failure : public std::runtime_error {
 public:
  /// Details come from requests of up to 100 KB; a reply has room for this much of one, in bytes.
  static constexpr std::size_t kDetailSize = 120;

  /// `detail` replaces the "%" of the kind's text, cut to `limit` bytes.
  explicit Failure(const FailureKind& kind, std::string_view detail = {},
                   std::size_t limit = kDetailSize);
  /// A failure of the card file's own making.
  Failure(std::string own_code, const std::string& own_errmsg);

  const std::string& errcode() const { return code; }

 private:
  std::string code;
};
