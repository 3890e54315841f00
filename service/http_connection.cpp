#include "service/http_connection.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

namespace pelmar::service {

HttpConnection::HttpConnection(int socket) : socket_(socket) {}

bool HttpConnection::fill() {
  // An interim "100 Continue" has to be out before its answer can come in.
  if (!flush()) return false;
  ssize_t count = -1;
  do {
    count = ::recv(socket_, received_.data(), received_.size(), 0);
  } while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  begin_ = 0;
  end_ = static_cast<std::size_t>(count);
  return true;
}

bool HttpConnection::awaitRequest() { return begin_ < end_ || fill(); }

ssize_t HttpConnection::read(char* to, size_t size) {
  if (begin_ == end_ && !fill()) return 0;
  const std::size_t count = std::min(size, end_ - begin_);
  std::copy_n(received_.data() + begin_, count, to);
  begin_ += count;
  return static_cast<ssize_t>(count);
}

bool HttpConnection::readBody(std::size_t size, std::string& body) {
  while (size > 0) {
    if (begin_ == end_ && !fill()) return false;
    const std::size_t count = std::min(size, end_ - begin_);
    body.append(received_.data() + begin_, count);
    begin_ += count;
    size -= count;
  }
  return true;
}

ssize_t HttpConnection::write(const char* from, size_t size) {
  unsent_.append(from, size);
  return static_cast<ssize_t>(size);
}

bool HttpConnection::flush() {
  std::size_t sent = 0;
  while (sent < unsent_.size()) {
    // A closed peer must not raise SIGPIPE: httplib's server has it ignored.
    const ssize_t count = ::send(socket_, unsent_.data() + sent, unsent_.size() - sent, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  unsent_.clear();
  return true;
}

bool HttpConnection::finish(Ending ending, const std::string& rawBytes) {
  if (ending == Ending::Answer) return flush();
  if (ending == Ending::HalfAnswer) {
    const std::size_t headEnd = unsent_.find("\r\n\r\n");
    if (headEnd != std::string::npos) {
      const std::size_t bodyBegin = headEnd + 4;
      unsent_.resize(bodyBegin + (unsent_.size() - bodyBegin) / 2);
    }
    flush();
  } else if (ending == Ending::RawBytes) {
    unsent_ = rawBytes;
    flush();
  }
  return false;
}

bool HttpConnection::sendChunk(std::string_view piece) {
  std::array<char, 20> size{};
  const auto end = std::to_chars(size.data(), size.data() + size.size(), piece.size(), 16).ptr;
  unsent_.append(size.data(), end).append("\r\n").append(piece).append("\r\n");
  return flush();
}

// Every peer is on this machine; nobody asks for its address.
void HttpConnection::get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const {}
void HttpConnection::get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const {}

}  // namespace pelmar::service
