// What went wrong, in the language of the page.

import {hasText, text} from './texts.js';

// The service's own reasons and the text that explains each. The parts in brackets fill {0}, {1}.
const SERVICE_REASONS = [
  [/^不支持该功能/, 'notSupported'],
  [/^该网站无权使用此功能/, 'notAllowed'],
  [/^未传入服务名/, 'noName'],
  [/无法识别的指令/, 'unrecognised'],
  [/^服务忙/, 'busy'],
  [/^请求内容过长/, 'tooLong'],
  [/^服务名过长/, 'nameTooLong'],
  [/^(?:应答内容无效|读卡库应答超长)/, 'libraryFault'],
  [/^读卡库异常退出/, 'libraryCrashed'],
  [/^读卡超时/, 'libraryTimedOut'],
  [/^读卡库无法启动/, 'libraryDown'],
  [/^取参数ip/, 'noIp'],
  [/^取参数:端口/, 'noPort'],
  [/^请检网络-连接(.*):(-?\d+) *失败/, 'unreachable'],
  [/^(?:打开配置文件|取配置参数|配置文件路径)/, 'settingsFile'],
  [/^socket创建失败|^建立链接出错|错误类型|^GBK conversion/, 'internal'],
];

/**
 * Explains the outcome of an exchange that failed.
 * @returns {{what: string, original?: string}} `what` for people; `original` the service's own
 *   words where `what` paraphrases them.
 */
export function explain({reply, error}) {
  if (error) return {what: hasText(error.kind) ? text(error.kind) : error.message};
  if (reply === undefined) return {what: text('badreply')};
  if (typeof reply?.result !== 'string') return {what: text('protocol')};
  const {errmsg} = reply;
  if (typeof errmsg !== 'string') return {what: text('noReason')};
  for (const [pattern, key] of SERVICE_REASONS) {
    const match = pattern.exec(errmsg);
    if (match) return {what: text(key, match.slice(1)), original: errmsg};
  }
  return {what: errmsg};
}
