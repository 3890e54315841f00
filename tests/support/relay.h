#pragma once

// A server of the loopback interface that passes on what it gets to another one: with TLS in front
// of it, at another address, or as a proxy. It keeps what came, and can show clients another face
// at any time. Only the Host header is changed, to the target's own. A thread a connection.

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/certificates.h"

namespace pelmar::test {

enum class RelayKind {
  plain,
  tls,
  oldTls,     // speaks nothing newer than TLS 1.1
  hangingUp,  // closes as soon as the client has said something
  proxy,      // takes CONNECT, for any port of this machine
};

struct RelayFace {
  RelayKind kind = RelayKind::plain;
  Certificate certificate{};  // for the two kinds that speak TLS
};

class Relay {
 public:
  // `target` is a port of 127.0.0.1; a proxy needs none.
  explicit Relay(RelayFace face, int target = 0, const std::string& address = "127.0.0.1");
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  int port() const { return port_; }

  // For the connections that come from now on.
  void show(RelayFace face);

  // Hangs up on every client; when it returns, each of them could know.
  void closeConnections();

  std::size_t connectionCount() const;

  // All that clients have sent, decrypted, in the order in which it came.
  std::string received() const;

  // Blocks until `count` connections have ended before anything could be passed on; false when they
  // do not within half a minute.
  bool waitForFailures(std::size_t count) const;

 private:
  class Wire;

  void acceptAll();
  void serve(int socket);
  bool serveFace(int socket, const RelayFace& face);
  bool serveTls(int socket, const RelayFace& face);
  bool serveProxy(int socket);
  bool passOn(Wire& client, int target);
  void keep(std::string_view bytes);

  const int target_;
  const int listener_;
  const int port_;
  int wakeUp_[2] = {-1, -1};
  mutable std::mutex mutex_{};  // for all below
  mutable std::condition_variable failed_{};
  RelayFace face_;
  std::string received_{};
  std::size_t connectionCount_ = 0;
  std::size_t failureCount_ = 0;
  std::vector<int> sockets_{};  // clients', open
  std::vector<std::thread> threads_{};
  std::thread acceptor_{};
};

}  // namespace pelmar::test
