#include "util/os/local_address.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <string>

#include "util/handle/unique_fd.h"
#include "util/text/text_buffer.h"

namespace {

/// The IPv4 address of the interface as dotted text; empty when it can't be read.
std::string interface_address(int socket, ifreq record) {
  if (ioctl(socket, SIOCGIFADDR, &record) != 0) return {};
  sockaddr_in address{};
  std::memcpy(&address, &record.ifr_addr, sizeof address);
  return inet_ntoa(address.sin_addr);
}

}  // namespace

int get_localip(char* out, std::size_t size) {
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM, 0));
  if (socket.get() <= 0) return -1;

  std::array<ifreq, kMaxInterfaces> records{};
  ifconf request{};
  request.ifc_len = static_cast<int>(sizeof records);
  request.ifc_req = records.data();
  if (ioctl(socket.get(), SIOCGIFCONF, &request) != 0) return -1;

  int result = -1;
  for (auto i = static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq); i > 0; --i) {
    const std::string address = interface_address(socket.get(), records[i - 1]);
    if (address.empty()) continue;
    const std::size_t used = std::strlen(out);
    if (copy_text({out + used, size - used}, address + ";")) result = 0;
  }
  return result;
}

bool peer_is_on_loopback(int descriptor) {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;
  if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&storage), &size) != 0) return false;
  in_addr ipv4{};
  if (storage.ss_family == AF_INET) {
    sockaddr_in address{};
    std::memcpy(&address, &storage, sizeof address);
    ipv4 = address.sin_addr;
  } else {
    sockaddr_in6 address{};
    std::memcpy(&address, &storage, sizeof address);
    const in6_addr& ipv6 = address.sin6_addr;
    if (storage.ss_family != AF_INET6 || !IN6_IS_ADDR_V4MAPPED(&ipv6))
      return storage.ss_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&ipv6);
    std::memcpy(&ipv4, &ipv6.s6_addr[12], sizeof ipv4);
  }
  return ntohl(ipv4.s_addr) >> 24 == IN_LOOPBACKNET;
}
