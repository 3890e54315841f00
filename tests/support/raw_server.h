#pragma once

// An HTTP server on a loopback port that the system picks, answering from a script. It keeps every
// request byte by byte and knows which connection brought it; it checks and understands nothing but
// where a request ends. One thread serves all connections.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/sockets.h"

namespace pelmar::test {

// How a connection goes on behind an answer: closed with a FIN or an RST, or open and never read
// from again.
enum class After { keepOpen, close, reset, ignore };

// Whether the answer waits for the request's body or goes out as soon as the head has been read.
enum class When { requestIsRead, headIsRead };

// An answer without bytes that keeps the connection open is silence.
struct RawAnswer {
  std::string bytes{};
  After after = After::keepOpen;
  When when = When::requestIsRead;
  std::chrono::milliseconds between{0};  // when set, the bytes go out one by one, so far apart
};

struct RawRequest {
  std::string bytes{};
  std::size_t connection = 0;  // in the order of arrival, from 0
};

class RawServer {
 public:
  // The nth request of the server's life gets the nth answer; one beyond the script is read and its
  // connection closed.
  explicit RawServer(std::vector<RawAnswer> script, std::string address = "127.0.0.1");
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  int port() const { return port_; }
  std::string authority() const { return authorityOf(address_, port_); }
  std::string url(const std::string& path = "") const { return "http://" + authority() + path; }

  std::vector<RawRequest> requests() const;
  std::size_t connectionCount() const;

  // Blocks until the server itself has closed `count` connections.
  void waitUntilClosed(std::size_t count) const;

 private:
  struct Connection {
    int socket = -1;
    std::size_t number = 0;
    std::string received{};
    bool isIgnored = false;
  };

  void serve();
  void acceptConnection();
  bool takeRequests(Connection& connection);
  bool answer(Connection& connection, std::string request);
  const RawAnswer& nextAnswer() const;
  bool readSome(Connection& connection) const;
  void closeConnection(std::size_t index, bool isByServer);

  const std::vector<RawAnswer> script_;
  const std::string address_;
  const int listener_;
  const int port_;
  int wakeUp_[2] = {-1, -1};
  std::vector<Connection> connections_{};  // the thread's own
  mutable std::mutex mutex_{};             // for all below
  mutable std::condition_variable closed_{};
  std::vector<RawRequest> requests_{};
  std::size_t connectionCount_ = 0;
  std::size_t closedCount_ = 0;
  std::thread thread_{};
};

// An answer of `status` with `body`, its length declared.
RawAnswer answering(const std::string& status, const std::string& body,
                    After after = After::keepOpen);

}  // namespace pelmar::test
