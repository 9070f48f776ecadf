#include "tests/support/ws_socket.h"

#include <stdexcept>

WsSocket::WsSocket(uint16_t port, const std::string& host) : TcpSocket(connect(port)) {
  send("GET / HTTP/1.1\r\nHost: " + host +
       "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
       "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: ws\r\n"
       "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n");
  // The server sends nothing after its response until it is asked, so this reads no frame.
  std::string response;
  std::string some;
  do {
    response += some = receive_some();
  } while (!some.empty() && response.find("\r\n\r\n") == std::string::npos);
  if (some.empty() || response.rfind("HTTP/1.1 101", 0) != 0)
    throw std::runtime_error("the server refused the upgrade: " + response);
}
