#include "tests/support/refusing_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace pelmar::test {

RefusingPort::RefusingPort() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (::bind(socket_, generic, size) != 0 || ::getsockname(socket_, generic, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "bind");
  }
  port_ = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() { ::close(socket_); }

std::string RefusingPort::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

}  // namespace pelmar::test
