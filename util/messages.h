#pragma once

/// The reasons ("errmsg") that the service itself gives, each text once. GBK at run time.
/// A text with % directives is a printf format; its arguments stand beside it.
namespace messages {

// Request channel.
inline constexpr char kUnrecognised[] = "错误信息:无法识别的指令";
inline constexpr char kBusy[] = "服务忙，请稍后再试！";
inline constexpr char kMessageTooLong[] = "请求内容过长！";
inline constexpr char kUnusableReply[] = "应答内容无效！";
inline constexpr char kNoConversion[] = "GBK conversion is not available";  // ASCII: sent as it is
inline constexpr char kException[] = "错误类型：%s 错误信息 ：%s ";         // type name, what()

// Dispatcher.
inline constexpr char kNoFunctionName[] = "未传入服务名！";
inline constexpr char kFunctionNameTooLong[] = "服务名过长！";

// Server address settings.
inline constexpr char kNoAddress[] = "取参数ip:地址失败";
inline constexpr char kNoPort[] = "取参数:端口失败";
inline constexpr char kCannotOpenSettings[] = "打开配置文件%s失败.";  // path
inline constexpr char kCannotReadSettings[] = "取配置参数失败！";
inline constexpr char kSettingsPathTooLong[] = "配置文件路径过长！";
inline constexpr char kNoSocket[] = "socket创建失败！";
inline constexpr char kNoConnection[] = "请检网络-连接%s:%-4d失败！";  // address, port
inline constexpr char kCheckFailed[] = "建立链接出错！";
inline constexpr char kCheckException[] = "建立链接出错 错误类型：%s 错误信息 ：%s ";

// Library registry and binding; %s is the library's path unless said otherwise.
inline constexpr char kNotSupported[] = "不支持该功能.";
inline constexpr char kInitFailed[] = "初始化%s失败 %s ";  // path, reason
inline constexpr char kNotInitialised[] = "请先初始化";
inline constexpr char kNoLibraryName[] = "未指定动态库名字！";
inline constexpr char kAlreadyLoaded[] = "%s动态库已经加载过！";
inline constexpr char kCannotLoad[] = "加载%s失败，请检查读卡环境！";
inline constexpr char kMissingEntryPoint[] = "非法的%s，未找到指定文件%d！";  // path, 0 to 3
inline constexpr char kLibraryInitFailed[] = "初始化失败.";
inline constexpr char kPathTooLong[] = "%s路径过长！";
inline constexpr char kReplyTooLong[] = "读卡库应答超长！";

}  // namespace messages
