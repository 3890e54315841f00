#include "tests/support/relay.h"

#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tests/support/sockets.h"

namespace pelmar::test {
namespace {

struct FreeTls {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* session) const { SSL_free(session); }
};
using TlsSession = std::unique_ptr<SSL, FreeTls>;

TlsSession tlsSession(int socket, const RelayFace& face) {
  const std::unique_ptr<SSL_CTX, FreeTls> context(SSL_CTX_new(TLS_server_method()));
  SSL_CTX_use_certificate(context.get(), face.certificate.certificate.get());
  SSL_CTX_use_PrivateKey(context.get(), face.certificate.key.get());
  if (face.kind == RelayKind::oldTls) {
    SSL_CTX_set_security_level(context.get(), 0);  // nothing that is old is refused here
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(context.get(), TLS1_1_VERSION);
  }
  TlsSession session(SSL_new(context.get()));
  if (!session) throw std::runtime_error("OpenSSL cannot make a session");
  SSL_set_fd(session.get(), socket);
  return session;
}

// A client sends a head at once, so that it begins a piece of what is read.
std::string withHost(std::string request, int port) {
  constexpr std::string_view kName = "\r\nHost: ";
  const auto begin = request.find(kName);
  if ((!request.starts_with("POST ") && !request.starts_with("GET ")) || begin == request.npos) {
    return request;
  }
  const auto value = begin + kName.size();
  return request.replace(value, request.find("\r\n", value) - value,
                         authorityOf("127.0.0.1", port));
}

}  // namespace

// A client's connection, encrypted or not.
class Relay::Wire {
 public:
  explicit Wire(int socket, SSL* session = nullptr) : socket_(socket), session_(session) {}

  int socket() const { return socket_; }
  bool hasUnread() const { return session_ != nullptr && SSL_pending(session_) > 0; }

  // Empty at the end.
  std::string read() const {
    char buffer[16 * 1024];
    const auto count = session_ != nullptr ? SSL_read(session_, buffer, sizeof buffer)
                                           : ::recv(socket_, buffer, sizeof buffer, 0);
    return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : std::string();
  }

  void write(std::string_view bytes) const {
    if (session_ == nullptr) {
      sendAll(socket_, bytes);
    } else {
      SSL_write(session_, bytes.data(), static_cast<int>(bytes.size()));
    }
  }

 private:
  int socket_;
  SSL* session_;
};

Relay::Relay(RelayFace face, int target, const std::string& address)
    : target_(target),
      listener_(listeningSocket(address)),
      port_(portOf(listener_)),
      face_(std::move(face)) {
  openPipe(wakeUp_);
  acceptor_ = std::thread([this] { acceptAll(); });
}

Relay::~Relay() {
  ::close(wakeUp_[1]);
  acceptor_.join();
  closeConnections();
  for (auto& thread : threads_) thread.join();
  ::close(wakeUp_[0]);
  ::close(listener_);
}

void Relay::show(RelayFace face) {
  const std::lock_guard lock(mutex_);
  face_ = std::move(face);
}

void Relay::closeConnections() {
  const std::lock_guard lock(mutex_);
  for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
}

std::size_t Relay::connectionCount() const {
  const std::lock_guard lock(mutex_);
  return connectionCount_;
}

std::string Relay::received() const {
  const std::lock_guard lock(mutex_);
  return received_;
}

bool Relay::waitForFailures(std::size_t count) const {
  constexpr std::chrono::seconds kPatience{30};
  std::unique_lock lock(mutex_);
  return failed_.wait_for(lock, kPatience, [&] { return failureCount_ >= count; });
}

void Relay::keep(std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  received_ += bytes;
}

void Relay::acceptAll() {
  for (;;) {
    pollfd watched[] = {{wakeUp_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) continue;
    if (watched[0].revents != 0) return;
    const int socket = acceptedFrom(listener_);
    if (socket < 0) continue;
    const std::lock_guard lock(mutex_);
    ++connectionCount_;
    sockets_.push_back(socket);
    threads_.emplace_back([this, socket] { serve(socket); });
  }
}

void Relay::serve(int socket) {
  RelayFace face;
  {
    const std::lock_guard lock(mutex_);
    face = face_;
  }
  const bool isPassedOn = serveFace(socket, face);
  const std::lock_guard lock(mutex_);
  std::erase(sockets_, socket);
  ::close(socket);
  if (isPassedOn) return;
  ++failureCount_;
  failed_.notify_all();
}

bool Relay::serveFace(int socket, const RelayFace& face) {
  switch (face.kind) {
    case RelayKind::plain: {
      Wire wire(socket);
      return passOn(wire, target_);
    }
    case RelayKind::tls:
    case RelayKind::oldTls:
      return serveTls(socket, face);
    case RelayKind::hangingUp:
      static_cast<void>(Wire(socket).read());
      return false;
    case RelayKind::proxy:
      return serveProxy(socket);
  }
  return false;
}

bool Relay::serveTls(int socket, const RelayFace& face) {
  const auto session = tlsSession(socket, face);
  if (SSL_accept(session.get()) != 1) return false;
  Wire wire(socket, session.get());
  return passOn(wire, target_);
}

bool Relay::serveProxy(int socket) {
  Wire wire(socket);
  std::string head;
  while (!head.ends_with("\r\n\r\n")) {
    const auto piece = wire.read();
    if (piece.empty()) return false;
    keep(piece);
    head += piece;
  }
  if (!head.starts_with("CONNECT ")) return false;
  const auto target = head.substr(0, head.find(" HTTP/"));
  // Whatever its name, the host is this machine.
  const int port = std::stoi(target.substr(target.rfind(':') + 1));
  wire.write("HTTP/1.1 200 Connection established\r\n\r\n");
  return passOn(wire, port);
}

// Whether anything was passed on: a client of TLS may look at the name only behind the handshake.
bool Relay::passOn(Wire& client, int target) {
  const int upstream = connectionTo(target);
  if (upstream < 0) return false;
  bool hasPassedOn = false;
  for (;;) {
    pollfd watched[] = {{client.socket(), POLLIN, 0}, {upstream, POLLIN, 0}};
    if (!client.hasUnread() && ::poll(watched, 2, -1) < 0) continue;
    if (client.hasUnread() || watched[0].revents != 0) {
      const auto bytes = client.read();
      if (bytes.empty()) break;
      keep(bytes);
      hasPassedOn = true;
      sendAll(upstream, withHost(bytes, target));
    }
    if (watched[1].revents != 0) {
      char buffer[16 * 1024];
      const ssize_t count = ::recv(upstream, buffer, sizeof buffer, 0);
      if (count <= 0) break;
      client.write({buffer, static_cast<std::size_t>(count)});
    }
  }
  ::close(upstream);
  return hasPassedOn;
}

}  // namespace pelmar::test
