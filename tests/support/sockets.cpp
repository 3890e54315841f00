#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace pelmar::test {
namespace {

struct Address {
  sockaddr_storage bytes{};
  socklen_t size = sizeof(sockaddr_storage);

  sockaddr* generic() { return reinterpret_cast<sockaddr*>(&bytes); }
};

Address addressOf(const std::string& text, int port) {
  Address address;
  auto* four = reinterpret_cast<sockaddr_in*>(&address.bytes);
  auto* six = reinterpret_cast<sockaddr_in6*>(&address.bytes);
  if (::inet_pton(AF_INET, text.c_str(), &four->sin_addr) == 1) {
    four->sin_family = AF_INET;
    four->sin_port = htons(static_cast<in_port_t>(port));
    address.size = sizeof *four;
  } else if (::inet_pton(AF_INET6, text.c_str(), &six->sin6_addr) == 1) {
    six->sin6_family = AF_INET6;
    six->sin6_port = htons(static_cast<in_port_t>(port));
    address.size = sizeof *six;
  } else {
    throw std::system_error(EINVAL, std::generic_category(), text);
  }
  return address;
}

void keepFromChildren(int descriptor) { ::fcntl(descriptor, F_SETFD, FD_CLOEXEC); }

void keepFromSignalling(int socket) {
#ifdef SO_NOSIGPIPE
  const int on = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#else
  static_cast<void>(socket);
  sigset_t pipe{};
  ::sigemptyset(&pipe);
  ::sigaddset(&pipe, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);  // it would come to the thread that writes
#endif
}

[[noreturn]] void failed(int socket, const char* what) {
  const int error = errno;
  ::close(socket);
  throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

int boundSocket(const std::string& address, int port) {
  Address place = addressOf(address, port);
  const int socket = ::socket(place.bytes.ss_family, SOCK_STREAM, 0);
  keepFromChildren(socket);
  if (::bind(socket, place.generic(), place.size) != 0) failed(socket, "bind");
  return socket;
}

int listeningSocket(const std::string& address) {
  const int socket = boundSocket(address);
  if (::listen(socket, 16) != 0) failed(socket, "listen");
  return socket;
}

int portOf(int socket) {
  Address place;
  if (::getsockname(socket, place.generic(), &place.size) != 0) {
    throw std::system_error(errno, std::generic_category(), "getsockname");
  }
  // The port stands at the same place for both families.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&place.bytes)->sin_port);
}

std::string authorityOf(const std::string& address, int port) {
  const bool isSix = address.find(':') != std::string::npos;
  return (isSix ? '[' + address + ']' : address) + ':' + std::to_string(port);
}

int connectionTo(int port) {
  Address place = addressOf("127.0.0.1", port);
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  keepFromChildren(socket);
  if (::connect(socket, place.generic(), place.size) == 0) return socket;
  ::close(socket);
  return -1;
}

int acceptedFrom(int listener) {
  const int socket = ::accept(listener, nullptr, nullptr);
  if (socket < 0) return socket;
  keepFromChildren(socket);
  keepFromSignalling(socket);
  return socket;
}

void sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket, bytes.data(), bytes.size(), 0);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void openPipe(int (&ends)[2]) {
  if (::pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : ends) keepFromChildren(end);
}

}  // namespace pelmar::test
