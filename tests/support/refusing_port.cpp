#include "tests/support/refusing_port.h"

#include <unistd.h>

#include "tests/support/sockets.h"

namespace pelmar::test {

RefusingPort::RefusingPort() : socket_(boundSocket("127.0.0.1")), port_(portOf(socket_)) {}

RefusingPort::~RefusingPort() { ::close(socket_); }

std::string RefusingPort::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

}  // namespace pelmar::test
