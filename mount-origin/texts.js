// The page's texts in Chinese and English, and the language in use.

const TEXTS = {
  zh: {
    title: 'Quorvel 读卡服务',
    subtitle: '读卡服务 · 状态与测试',
    language: '语言',

    connection: '连接状态',
    stateOpen: '服务正常',
    stateConnecting: '正在连接服务…',
    stateDown: '连接不上服务',
    stateRefused: '服务不接受本页',
    stateIdle: '尚未连接',
    stateSilent: '服务没有应答',
    stateWait: '请把卡放到读卡器上…',
    stateRead: '正在读卡…',
    stateAsk: '等待应答…',
    stateLate: '还没有应答',
    detailOpen: '{url}，{time} 起已连接',
    detailOther: '{url}',
    detailWaiting: '{url}，{seconds} 秒后自动重试',
    detailSilent: '可能正在读卡（包括别的页面发起的读卡），也可能服务已停住。一有应答，本页自动恢复。',
    detailTask: '按 Esc 可取消。',
    detailTaskConnecting: '正在连接服务。',
    detailQueued: '前面还有 {ahead} 个请求。',
    detailLate: '读卡器可能还在工作，也可能服务已停住。',
    seconds: '{seconds} 秒',
    access: '谁可以使用本服务：',
    accessThisMachine: '仅本机',
    accessAnyMachine: '任何能连到本机的计算机',
    accessAnySite: '{machines}，任何网站。限定网站：sudo quorvel-policy https://…',
    accessNoSite: '{machines}，没有任何网站。',
    accessSites: '{machines}，网站 {sites}。',
    accessManySites: '{machines}，网站 {sites} 等。',
    accessComma: '、',
    retry: '立即重试',
    readCard: '读卡',
    waitCard: '放卡即读',
    helpTitle: '怎么办',
    helpDown: '请稍等几秒，再按“立即重试”。仍不行，请联系管理员，并把上面的状态读给他听。服务一恢复，本页会自动连接，不必刷新。',
    helpRefused: '服务在运行，但不接受以此地址打开的网页。请改用 127.0.0.1 加端口 {port} 打开本页；仍不行，请联系管理员。',
    helpSilent: '请让卡留在读卡器上再等片刻。超过半分钟仍无应答，请联系管理员，并把上面的状态读给他听。',
    helpAdmin: '管理员用的命令',
    helpHost: '要用此地址打开本页，请在 /opt/apps/quorvelserver/bin/quorvel_service.ini 的 [ACCESS] 中加入：',
    helpStart: '重新启动服务：',
    helpLog: '查看服务日志：',
    helpPort: '服务的端口必须是本页地址中的端口：',
    helpTls: '本页使用 https，浏览器必须信任本机证书：',

    request: '发送请求',
    requestHint: '选一个示例，或自己编写。一条请求得到一条应答。',
    examples: '示例',
    requestText: '请求内容',
    noteJson: '功能：{name}',
    noteCanned: '简写：等同于读取基本信息。',
    noteNotJson: '不是有效的 JSON，仍可原样发送：{reason}',
    noteEmpty: '请先填写请求内容。',
    send: '发送',
    sending: '等待应答…',
    sendKeys: 'Ctrl + Enter',
    cancel: '取消',

    exampleBasic: '读取基本信息',
    exampleCanned: '简写',
    examplePresent: '有卡吗',
    examplePhoto: '照片编号',
    exampleWrite: '写卡（拒绝）',
    exampleSettings: '服务器地址',
    exampleUnknown: '不支持的功能',

    reply: '应答',
    replyEmpty: '还没有应答。把卡放到读卡器上，点“读卡”；或选一个示例并发送。',
    replyPending: '正在等待新的应答。之前的内容已清除。',
    replyMeta: '{name} · {time} · {ms} 毫秒',
    success: '成功',
    failure: '失败',
    noReply: '没有应答',
    original: '服务原文：{text}',
    raw: '原始内容',
    rawRequest: '请求',
    rawReply: '应答',
    copy: '复制应答',
    copied: '已复制',
    plainText: '（文本）',

    member_name: '姓名',
    member_sex: '性别',
    member_nation: '民族',
    member_birth: '出生日期',
    member_idnumber: '证件号码',
    member_address: '住址',
    member_cardnumber: '卡号',
    member_issuer: '发卡机构',
    member_expires: '有效期至',
    member_present: '有卡',
    member_photo: '照片编号',
    member_errcode: '错误代码',
    member_ip: '地址',
    member_port: '端口',

    libraries: '读卡库',
    librariesMeta: '版本 {version} · 已运行 {uptime}',
    librariesHint: '点一个功能，把它填入上面的请求。',
    librariesUnknown: '还不知道：没有连接，或服务没有应答。',
    librariesNone: 'quorvel_service.ini 中没有登记读卡库。请联系管理员。',
    library_ready: '可用',
    library_working: '工作中',
    library_restarting: '正在重新启动',
    library_failed: '不可用',
    libraryLocal: '在服务进程内',
    libraryIsolated: '独立进程，每次最长 {limit} 秒',
    libraryRestarts: '重新启动过 {count} 次',
    libraryWaiting: '{count} 个请求在等待',
    libraryTruncated: '内容太多，这里没有列全',

    settings: '后台服务器地址',
    settingsHint: '新地址只有在本机能连上时才会保存。',
    settingsStored: '当前地址：',
    settingsUnknown: '未知',
    ip: 'IP 地址',
    port: '端口',
    save: '检查并保存',
    reload: '重新读取',
    ipError: '请输入 IPv4 地址，例如 192.168.1.20',
    portError: '请输入 1 到 65535 的整数',
    saved: '已保存：{ip}:{port}',
    notSaved: '地址没有改变。',

    history: '历史记录',
    historyEmpty: '只保存在本页中，关闭或刷新后即消失。',
    historyTime: '时间',
    historyFunction: '功能',
    historyOutcome: '结果',
    historyDuration: '用时',
    historyShow: '显示 {time} 的 {name}',
    milliseconds: '{ms} 毫秒',
    clear: '清空',
    footer: '开发者：JavaScript 客户端在安装目录的 client/ 中；本服务自己的网页引用 /quorvel.js。',

    unavailable: '读卡服务没有运行。请稍后再试；仍不行，请联系管理员。',
    refused: '服务不接受本页。请联系管理员：要用的地址须在 quorvel_service.ini 的 [ACCESS] 中。',
    permission: '浏览器不允许本页访问本机。请点地址栏左边的图标，在网站设置中允许访问本机；没有此项时，请联系管理员。',
    timeout: '在规定时间内没有应答。请把卡放好再试；仍不行，请联系管理员。',
    aborted: '已取消等待。请求可能已经执行。',
    closed: '等待应答时连接中断，请求可能已经执行。请确认后再试。',
    badreply: '应答不是有效的 JSON。请联系管理员。',
    protocol: '应答中没有文本成员 "result"，不知成败。请联系管理员，由读卡库提供者处理。',
    noReason: '应答没有说明原因。请联系管理员。',
    notSupported: '没有任何读卡库提供此功能。请联系管理员：功能名有误，或 quorvel_service.ini 中没有登记读卡库。',
    notAllowed: '管理员没有允许本网站使用此功能。需要时请联系管理员（quorvel_service.ini 的 [ACCESS]）。',
    noName: '请求中缺少文本成员 "fid"（功能名），或内容不是有效的 JSON。',
    unrecognised: '请求必须是以 “{” 开头、至少 6 字节的 JSON 对象。',
    busy: '服务正忙：同时未发完的请求太多，或正在检查另一个地址。请稍后再试。',
    tooLong: '请求太长：最多 102399 字节。',
    nameTooLong: '功能名太长：最多 99 字节。',
    libraryFault: '读卡库的应答不符合要求。请联系管理员，由读卡库提供者处理。',
    libraryCrashed: '读卡库在读卡时异常退出，已重新启动。请重试；如反复出现，请联系管理员。',
    libraryTimedOut: '读卡库在规定时间内没有应答，已重新启动。请检查读卡器和卡片后重试。',
    libraryDown: '读卡库目前无法启动。请检查读卡器的连接；如持续出现，请联系管理员。',
    noIp: '缺少 "ip"，或它不是有效的地址文本。',
    noPort: '缺少 "port"，或它不是大于 0 的数字。',
    unreachable: '连不上 {0} 的端口 {1}。请确认服务器已启动、地址和端口正确、本机网络通畅。',
    settingsFile: '服务读不了程序旁的 quorvel.ini。请联系管理员检查该文件是否存在、服务是否有权读取。',
    internal: '服务内部出错。请联系管理员查看服务日志。',
  },
  en: {
    title: 'Quorvel card-reading service',
    subtitle: 'Card-reading service · status and test',
    language: 'Language',

    connection: 'Connection',
    stateOpen: 'The service is running',
    stateConnecting: 'Connecting to the service…',
    stateDown: 'No connection to the service',
    stateRefused: 'The service does not admit this page',
    stateIdle: 'Not connected',
    stateSilent: 'The service does not answer',
    stateWait: 'Put the card on the reader…',
    stateRead: 'Reading the card…',
    stateAsk: 'Waiting for the reply…',
    stateLate: 'No reply yet',
    detailOpen: '{url}, connected since {time}',
    detailOther: '{url}',
    detailWaiting: '{url}, next attempt in {seconds} s',
    detailSilent: 'Perhaps it is reading a card, for this page or another; perhaps it hangs. This page notices its next answer by itself.',
    detailTask: 'Esc cancels.',
    detailTaskConnecting: 'Connecting to the service.',
    detailQueued: 'Requests that come first: {ahead}.',
    detailLate: 'The reader may still be at work, or the service hangs.',
    seconds: '{seconds} s',
    access: 'Who may use this service: ',
    accessThisMachine: 'this machine alone',
    accessAnyMachine: 'every machine that reaches it',
    accessAnySite: '{machines}, pages of every site. To limit it: sudo quorvel-policy https://…',
    accessNoSite: '{machines}, pages of no site.',
    accessSites: '{machines}, pages of {sites}.',
    accessManySites: '{machines}, pages of {sites} and others.',
    accessComma: ', ',
    retry: 'Try now',
    readCard: 'Read card',
    waitCard: 'Wait for card',
    helpTitle: 'What to do',
    helpDown: 'Wait some seconds and press “Try now”. If that does not help, call your administrator and read out the state above. The page connects by itself as soon as the service is back; there is no need to reload it.',
    helpRefused: 'The service is running but does not admit a page opened under this address. Open it at 127.0.0.1, port {port}; if that does not help, call your administrator.',
    helpSilent: 'Leave the card on the reader and wait a little longer. After half a minute without an answer, call your administrator and read out the state above.',
    helpAdmin: 'Commands for the administrator',
    helpHost: 'For this page to be opened under this address, add under [ACCESS] in /opt/apps/quorvelserver/bin/quorvel_service.ini:',
    helpStart: 'Restart the service:',
    helpLog: 'See what it logged:',
    helpPort: 'The service’s port must be the one in this page’s address:',
    helpTls: 'This page uses https, so the browser must trust this machine’s certificate:',

    request: 'Send a request',
    requestHint: 'Take an example or write your own. Each request gets one reply.',
    examples: 'Examples',
    requestText: 'Request',
    noteJson: 'Function: {name}',
    noteCanned: 'Short form of reading the basic data.',
    noteNotJson: 'Not valid JSON; it can be sent as it is: {reason}',
    noteEmpty: 'Write a request first.',
    send: 'Send',
    sending: 'Waiting for the reply…',
    sendKeys: 'Ctrl + Enter',
    cancel: 'Cancel',

    exampleBasic: 'Read basic data',
    exampleCanned: 'Short form',
    examplePresent: 'Card present?',
    examplePhoto: 'Photo reference',
    exampleWrite: 'Write (refused)',
    exampleSettings: 'Server address',
    exampleUnknown: 'Unknown function',

    reply: 'Reply',
    replyEmpty: 'No reply yet. Put a card on the reader and press “Read card”, or pick an example and send it.',
    replyPending: 'Waiting for the new reply. What was here before has been cleared.',
    replyMeta: '{name} · {time} · {ms} ms',
    success: 'Success',
    failure: 'Failure',
    noReply: 'No reply',
    original: 'The service’s words: {text}',
    raw: 'Raw texts',
    rawRequest: 'Request',
    rawReply: 'Reply',
    copy: 'Copy the reply',
    copied: 'Copied',
    plainText: '(text)',

    member_name: 'Name',
    member_sex: 'Sex',
    member_nation: 'Ethnic group',
    member_birth: 'Date of birth',
    member_idnumber: 'ID number',
    member_address: 'Address',
    member_cardnumber: 'Card number',
    member_issuer: 'Issuer',
    member_expires: 'Valid until',
    member_present: 'Card present',
    member_photo: 'Photo reference',
    member_errcode: 'Error code',
    member_ip: 'Address',
    member_port: 'Port',

    libraries: 'Reader libraries',
    librariesMeta: 'Version {version} · running for {uptime}',
    librariesHint: 'Pick a function to put it into the request above.',
    librariesUnknown: 'Not known: there is no connection, or the service does not answer.',
    librariesNone: 'quorvel_service.ini lists no reader library. Call your administrator.',
    library_ready: 'Ready',
    library_working: 'Working',
    library_restarting: 'Restarting',
    library_failed: 'Failed',
    libraryLocal: 'inside the service',
    libraryIsolated: 'process of its own, at most {limit} s a call',
    libraryRestarts: 'restarts: {count}',
    libraryWaiting: 'requests waiting: {count}',
    libraryTruncated: 'too much to be listed here',

    settings: 'Back-end server address',
    settingsHint: 'A new address is stored only when this machine can connect to it.',
    settingsStored: 'Stored address:',
    settingsUnknown: 'unknown',
    ip: 'IP address',
    port: 'Port',
    save: 'Check and save',
    reload: 'Read again',
    ipError: 'Enter an IPv4 address such as 192.168.1.20',
    portError: 'Enter a whole number from 1 to 65535',
    saved: 'Saved: {ip}:{port}',
    notSaved: 'The address has not changed.',

    history: 'History',
    historyEmpty: 'Kept in this page only, and gone when it is closed or reloaded.',
    historyTime: 'Time',
    historyFunction: 'Function',
    historyOutcome: 'Outcome',
    historyDuration: 'Took',
    historyShow: 'Show {name} of {time}',
    milliseconds: '{ms} ms',
    clear: 'Clear',
    footer: 'Developers: the JavaScript client is in client/ of the installation; pages of this service import /quorvel.js.',

    unavailable: 'The card-reading service is not running. Try again in a moment; if that does not help, call your administrator.',
    refused: 'The service does not admit this page. Call your administrator: the address has to stand under [ACCESS] in quorvel_service.ini.',
    permission: 'The browser does not let this page reach this machine. Click the icon left of the address and allow access to this machine in the site settings; if there is no such setting, call your administrator.',
    timeout: 'No reply in time. Place the card properly and try again; if that does not help, call your administrator.',
    aborted: 'Cancelled. The request may have been carried out.',
    closed: 'The connection was lost before the reply came; the request may have been carried out. Check before you repeat it.',
    badreply: 'The reply is not valid JSON. Call your administrator.',
    protocol: 'The reply has no text member "result", so the outcome is unknown. Call your administrator; it is for the maker of the reader library.',
    noReason: 'The reply gives no reason. Call your administrator.',
    notSupported: 'No reader library offers this function. Call your administrator: the name is wrong, or quorvel_service.ini lists no library for it.',
    notAllowed: 'This site may not use this function. If it should, ask your administrator ([ACCESS] in quorvel_service.ini).',
    noName: 'The request has no text member "fid" (the function’s name), or is not valid JSON.',
    unrecognised: 'A request is a JSON object: it begins with “{” and has at least 6 bytes.',
    busy: 'The service is busy: too many requests are unfinished, or another address is being checked. Try again later.',
    tooLong: 'The request is too long: at most 102,399 bytes.',
    nameTooLong: 'The function’s name is too long: at most 99 bytes.',
    libraryFault: 'The reader library’s reply breaks the rules. Call your administrator; it is for the maker of the library.',
    libraryCrashed: 'The reader library broke down over this request and has been started anew. Try again; call your administrator if it happens again.',
    libraryTimedOut: 'The reader library did not answer in time and has been started anew. Check reader and card, then try again.',
    libraryDown: 'The reader library can’t be started at present. Check the reader’s connection; call your administrator if it stays so.',
    noIp: '"ip" is missing or is not the text of an address.',
    noPort: '"port" is missing or is not a number above 0.',
    unreachable: 'Port {1} of {0} cannot be reached. Check that the server runs, that address and port are right, and that this machine’s network works.',
    settingsFile: 'The service cannot read quorvel.ini beside its program. Ask your administrator to check that it is there and that the service may read it.',
    internal: 'The service met an internal error. Ask your administrator to look into its log.',
  },
};

const STORED_AS = 'quorvel.language';
const listeners = [];
let language = rememberedLanguage() ?? browserLanguage();

function rememberedLanguage() {
  try {
    const remembered = localStorage.getItem(STORED_AS);
    return remembered in TEXTS ? remembered : null;
  } catch {
    return null;  // storage is switched off
  }
}

function browserLanguage() {
  const known = navigator.languages.map((tag) => tag.slice(0, 2).toLowerCase()).find((tag) => tag in TEXTS);
  return known ?? 'en';
}

/** The text under `key`, its {placeholders} filled from `values` (an object or an array). */
export function text(key, values = {}) {
  return TEXTS[language][key].replace(/\{(\w+)\}/g, (_, name) => values[name]);
}

export function hasText(key) {
  return Object.hasOwn(TEXTS[language], key);
}

export function timeOfDay(date) {
  return date.toLocaleTimeString(document.documentElement.lang, {hour12: false});
}

/** Sets `element`'s text, and marks Chinese in the English page, so that it is spoken as Chinese. */
export function inItsLanguage(element, content) {
  element.textContent = content;
  if (language === 'en' && /\p{Script=Han}/u.test(content)) element.lang = 'zh-CN';
  else element.removeAttribute('lang');
  return element;
}

/** Runs `render` now and whenever the language changes. */
export function rendered(render) {
  listeners.push(render);
  render();
}

function translatePage() {
  document.documentElement.lang = language === 'zh' ? 'zh-CN' : 'en';
  document.title = text('title');
  for (const element of document.querySelectorAll('[data-text]')) element.textContent = text(element.dataset.text);
  for (const element of document.querySelectorAll('[data-label]')) element.setAttribute('aria-label', text(element.dataset.label));
  for (const button of document.querySelectorAll('[data-language]')) {
    button.setAttribute('aria-pressed', button.dataset.language === language);
  }
}

function choose(wanted) {
  language = wanted;
  try {
    localStorage.setItem(STORED_AS, wanted);
  } catch {
    // Storage is switched off: the choice holds until the page is closed.
  }
  for (const render of listeners) render();
}

for (const button of document.querySelectorAll('[data-language]')) {
  button.addEventListener('click', () => choose(button.dataset.language));
}
rendered(translatePage);
