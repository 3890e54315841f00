#pragma once

// HttpServer speaks HTTP/1.1 on 127.0.0.1, one thread a connection, and can break off an
// exchange at any point on request: that is what it is for. It knows no endpoint.
// It listens nowhere but on the loopback interface and takes no chunked request bodies.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pelmar::service {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// Header names are the same in any case.
bool isSameHeaderName(std::string_view one, std::string_view other);

struct HttpRequest {
  std::string method;
  std::string target;  // as sent, with the query
  std::string path;    // percent-decoded, without the query
  std::map<std::string, std::string> query;
  HttpHeaders headers;     // as sent, ordered by name
  std::uint16_t port = 0;  // the server's own
  std::string body;

  // The first header of that name in any case, or the empty string.
  std::string header(std::string_view name) const;
};

// How an exchange ends. All but Answer close the connection.
enum class Ending {
  Answer,      // the whole answer
  HalfAnswer,  // the answer's head and half of its body
  RawBytes,    // the reply's body alone, without any HTTP around it
  Drop,        // not one byte
  NoAnswer,    // as Drop, but only when the server stops
};

// Sends a piece of a streamed body at once; false when the other side is gone.
using BodyWriter = std::function<bool(std::string_view)>;

struct HttpReply {
  int status = 200;
  std::string body = {};  // JSON text unless the type or the ending says otherwise
  std::string location = {};
  std::string contentType = "application/json";
  HttpHeaders headers = {};
  // When set, writes the body in pieces, on the connection's thread, in place of `body`. It has
  // to return soon after stop() was called.
  std::function<void(const BodyWriter&)> stream = {};
  Ending ending = Ending::Answer;
  std::chrono::milliseconds delay{0};  // waited before anything is sent
};

class HttpServer {
 public:
  // Reads the body into the request. None when all of it came, otherwise the status that
  // says what is wrong with it; the connection then ends after the answer.
  using BodyReader = std::function<std::optional<int>()>;

  // Called on the connection's thread with everything but the body, which stays unread
  // until the handler asks for it.
  using Handler = std::function<HttpReply(HttpRequest&, const BodyReader&)>;

  // Listens when it returns. `port` 0 lets the system choose. Null when the port is taken.
  static std::unique_ptr<HttpServer> start(std::uint16_t port, Handler handler);

  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  std::uint16_t port() const;

  // Closes every connection, idle or waiting, and returns when no handler runs any more.
  void stop();

 private:
  class Listener;

  explicit HttpServer(std::unique_ptr<Listener> listener);

  std::unique_ptr<Listener> listener_;
};

}  // namespace pelmar::service
