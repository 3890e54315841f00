#pragma once

// HttpConnection is one accepted socket as httplib sees it. What httplib writes is held
// back until the exchange ends, so that the ending may cut it, replace it or drop it.
// Includes httplib.h, which is heavy: only the HTTP server's own sources include this.

#include <httplib.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "service/http_server.h"

namespace pelmar::service {

// What one version of httplib asks of a stream and another (0.11 to 0.41) does not know: none of it
// is marked as overriding.
// NOLINTBEGIN(modernize-use-override,cppcoreguidelines-explicit-virtual-functions)
class StreamOfAnyVersion : public httplib::Stream {
 public:
  virtual bool is_writable() const { return true; }
  virtual bool wait_readable() const { return true; }
  virtual bool wait_writable() const { return true; }
  virtual time_t duration() const { return 0; }
};
// NOLINTEND(modernize-use-override,cppcoreguidelines-explicit-virtual-functions)

class HttpConnection final : public StreamOfAnyVersion {
 public:
  // Does not own the socket.
  explicit HttpConnection(int socket);

  // Blocks until the next request begins; false when the other side has closed.
  bool awaitRequest();

  // The next `size` bytes of the request; false when the other side closes before.
  bool readBody(std::size_t size, std::string& body);

  // Sends what was written, or what `ending` makes of it. False when the connection must
  // not be used any more.
  bool finish(Ending ending, const std::string& rawBytes);

  // A piece of a chunked body, sent at once; the empty one ends it. False when the other side is
  // gone.
  bool sendChunk(std::string_view piece);

  bool is_readable() const override { return true; }
  ssize_t read(char* to, size_t size) override;
  ssize_t write(const char* from, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 private:
  bool flush();
  bool fill();

  int socket_;
  std::array<char, 16384> received_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::string unsent_;
};

}  // namespace pelmar::service
