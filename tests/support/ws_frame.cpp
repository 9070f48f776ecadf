#include "tests/support/ws_frame.h"

#include <stdexcept>

namespace {

/// What stands before key and payload. The length takes the shortest of its three forms.
std::string frame_start(unsigned char head, size_t length, unsigned char mask_bit) {
  const int length_bytes = length < 126 ? 0 : length < 65536 ? 2 : 8;
  const size_t marker = length_bytes == 0 ? length : length_bytes == 2 ? 126 : 127;
  std::string start = {static_cast<char>(head), static_cast<char>(mask_bit | marker)};
  for (int shift = 8 * (length_bytes - 1); shift >= 0; shift -= 8)
    start += static_cast<char>(length >> shift);
  return start;
}

}  // namespace

const std::string_view kUpgradeHeaders =
    "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
    "Sec-WebSocket-Protocol: ws\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n";

TcpSocket connect_ws(uint16_t port) {
  TcpSocket socket = TcpSocket::connect(port);
  socket.send("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n" + std::string(kUpgradeHeaders));
  // The server sends nothing after its response until it is asked, so this reads no frame.
  std::string response;
  std::string some;
  do {
    response += some = socket.receive_some();
  } while (!some.empty() && response.find("\r\n\r\n") == std::string::npos);
  if (some.empty() || response.rfind("HTTP/1.1 101", 0) != 0)
    throw std::runtime_error("the server refused the upgrade: " + response);
  return socket;
}

std::string masked_frame(unsigned char head, std::string_view payload) {
  constexpr std::string_view kKey = "\x1b\x2c\x3d\x4e";
  std::string frame = frame_start(head, payload.size(), 0x80).append(kKey);
  for (size_t index = 0; index < payload.size(); ++index)
    frame += static_cast<char>(payload[index] ^ kKey[index % kKey.size()]);
  return frame;
}

std::string unmasked_frame(unsigned char head, std::string_view payload) {
  return frame_start(head, payload.size(), 0).append(payload);
}
