#include "bench/soak/probe_target.h"

namespace asio = boost::asio;
using asio::ip::tcp;

ProbeTarget::ProbeTarget() : acceptor(loop, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
  accept_next();
  thread = std::thread([this] { loop.run(); });
}

ProbeTarget::~ProbeTarget() {
  loop.stop();
  thread.join();
}

void ProbeTarget::accept_next() {
  // The connection is closed with the end of the handler, to which it is given.
  acceptor.async_accept([this](boost::system::error_code, const tcp::socket&) { accept_next(); });
}
