#include "tests/support/raw_server.h"

#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace pelmar::test {
namespace {

constexpr std::string_view kEndOfHead = "\r\n\r\n";

std::size_t declaredLength(std::string_view head) {
  constexpr std::string_view kName = "\r\nContent-Length:";
  for (std::size_t i = 0; i + kName.size() <= head.size(); ++i) {
    if (::strncasecmp(head.data() + i, kName.data(), kName.size()) == 0) {
      return std::strtoul(std::string(head.substr(i + kName.size())).c_str(), nullptr, 10);
    }
  }
  return 0;
}

// The size of the head that `received` begins with, none while it is incomplete.
std::optional<std::size_t> headSize(const std::string& received) {
  const auto end = received.find(kEndOfHead);
  if (end == std::string::npos) return std::nullopt;
  return end + kEndOfHead.size();
}

void sendAnswer(int socket, const RawAnswer& answer) {
  if (answer.between.count() == 0) return sendAll(socket, answer.bytes);
  for (const char byte : answer.bytes) {
    if (::send(socket, &byte, 1, 0) != 1) return;  // the client has had enough
    std::this_thread::sleep_for(answer.between);
  }
}

void closeWithReset(int socket) {
  const linger atOnce{.l_onoff = 1, .l_linger = 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

}  // namespace

RawServer::RawServer(std::vector<RawAnswer> script, std::string address)
    : script_(std::move(script)),
      address_(std::move(address)),
      listener_(listeningSocket(address_)),
      port_(portOf(listener_)) {
  openPipe(wakeUp_);
  thread_ = std::thread([this] { serve(); });
}

RawServer::~RawServer() {
  ::close(wakeUp_[1]);
  thread_.join();
  ::close(wakeUp_[0]);
  for (const auto& connection : connections_) ::close(connection.socket);
  ::close(listener_);
}

std::vector<RawRequest> RawServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t RawServer::connectionCount() const {
  const std::lock_guard lock(mutex_);
  return connectionCount_;
}

void RawServer::waitUntilClosed(std::size_t count) const {
  std::unique_lock lock(mutex_);
  closed_.wait(lock, [&] { return closedCount_ >= count; });
}

void RawServer::serve() {
  for (;;) {
    std::vector<pollfd> watched = {{wakeUp_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
    for (const auto& connection : connections_) {
      watched.push_back({connection.isIgnored ? -1 : connection.socket, POLLIN, 0});
    }
    if (::poll(watched.data(), static_cast<nfds_t>(watched.size()), -1) < 0) continue;
    if (watched[0].revents != 0) return;
    for (std::size_t i = connections_.size(); i-- > 0;) {  // from behind: closing removes
      if (watched[i + 2].revents == 0) continue;
      if (!readSome(connections_[i])) {
        closeConnection(i, false);
      } else if (!takeRequests(connections_[i])) {
        closeConnection(i, true);
      }
    }
    if (watched[1].revents != 0) acceptConnection();
  }
}

void RawServer::acceptConnection() {
  const int socket = acceptedFrom(listener_);
  if (socket < 0) return;
  const std::lock_guard lock(mutex_);
  connections_.push_back({.socket = socket, .number = connectionCount_++});
}

bool RawServer::readSome(Connection& connection) const {
  char buffer[64 * 1024];
  const ssize_t count = ::recv(connection.socket, buffer, sizeof buffer, 0);
  if (count <= 0) return false;
  connection.received.append(buffer, static_cast<std::size_t>(count));
  return true;
}

// Answers what has arrived; false when the connection is to be closed.
bool RawServer::takeRequests(Connection& connection) {
  auto& received = connection.received;
  for (auto head = headSize(received); head; head = headSize(received)) {
    if (nextAnswer().when == When::headIsRead) {
      return answer(connection, std::exchange(received, {}));
    }
    const std::size_t size = *head + declaredLength(received.substr(0, *head));
    if (received.size() < size) return true;
    std::string request = received.substr(0, size);
    received.erase(0, size);
    if (!answer(connection, std::move(request))) return false;
  }
  return true;
}

const RawAnswer& RawServer::nextAnswer() const {
  static const RawAnswer beyondTheScript = {.after = After::close};
  const std::lock_guard lock(mutex_);
  return requests_.size() < script_.size() ? script_[requests_.size()] : beyondTheScript;
}

bool RawServer::answer(Connection& connection, std::string request) {
  const RawAnswer& reply = nextAnswer();
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back({.bytes = std::move(request), .connection = connection.number});
  }
  sendAnswer(connection.socket, reply);
  if (reply.after == After::reset) closeWithReset(connection.socket);
  connection.isIgnored = reply.after == After::ignore;
  return reply.after == After::keepOpen || reply.after == After::ignore;
}

void RawServer::closeConnection(std::size_t index, bool isByServer) {
  ::close(connections_[index].socket);
  connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(index));
  if (!isByServer) return;
  {
    const std::lock_guard lock(mutex_);
    ++closedCount_;
  }
  closed_.notify_all();
}

RawAnswer answering(const std::string& status, const std::string& body, After after) {
  return {.bytes = "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n\r\n" + body,
          .after = after};
}

}  // namespace pelmar::test
