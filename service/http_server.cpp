#include "service/http_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <condition_variable>
#include <future>
#include <limits>
#include <list>
#include <mutex>
#include <set>
#include <thread>

#include "service/http_connection.h"

namespace pelmar::service {
namespace {

constexpr time_t kPatienceSeconds = 86400;
constexpr std::size_t kMaxBodyBytes = std::size_t{256} << 20;

// A connection that waits for its next request, or for a scripted delay, keeps its thread:
// a pool of a fixed size would run dry.
class ThreadPerConnection final : public httplib::TaskQueue {
 public:
  // Nothing in older versions of httplib; in newer ones, whether it was taken.
  using Enqueued = decltype(std::declval<httplib::TaskQueue&>().enqueue({}));

  Enqueued enqueue(std::function<void()> serve) override {
    workers_.remove_if([](Worker& worker) {
      if (!worker.isDone) return false;
      worker.thread.join();
      return true;
    });
    Worker& worker = workers_.emplace_back();
    worker.thread = std::thread([&worker, serve = std::move(serve)] {
      serve();
      worker.isDone = true;
    });
    return static_cast<Enqueued>(true);
  }

  void shutdown() override {
    for (Worker& worker : workers_) worker.thread.join();
    workers_.clear();
  }

 private:
  struct Worker {
    std::thread thread;
    std::atomic<bool> isDone = false;
  };

  std::list<Worker> workers_;
};

// httplib adds headers of its own making to those that came.
bool isMadeByHttplib(std::string_view name) {
  constexpr std::array<std::string_view, 4> kMade = {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR",
                                                     "LOCAL_PORT"};
  return std::find(kMade.begin(), kMade.end(), name) != kMade.end();
}

HttpRequest requestFrom(const httplib::Request& head, std::uint16_t port) {
  HttpRequest request;
  request.port = port;
  request.method = head.method;
  request.target = head.target;
  request.path = head.path;
  request.query.insert(head.params.begin(), head.params.end());
  for (const auto& [name, value] : head.headers) {
    if (!isMadeByHttplib(name)) request.headers.emplace_back(name, value);
  }
  return request;
}

std::optional<int> readBody(HttpConnection& connection, HttpRequest& request) {
  if (!request.header("Transfer-Encoding").empty()) return 411;
  const std::string length = request.header("Content-Length");
  if (length.empty()) return std::nullopt;
  std::size_t size = 0;
  const char* end = length.data() + length.size();
  const auto parsed = std::from_chars(length.data(), end, size);
  if (parsed.ec != std::errc() || parsed.ptr != end) return 400;
  if (size > kMaxBodyBytes) return 413;
  if (!connection.readBody(size, request.body)) return 400;
  return std::nullopt;
}

bool bodyIsAnnounced(const HttpRequest& request) {
  const std::string length = request.header("Content-Length");
  return (!length.empty() && length != "0") || !request.header("Transfer-Encoding").empty();
}

// One exchange of a connection as its handler left it.
struct Exchange {
  HttpConnection* connection = nullptr;
  Ending ending = Ending::Answer;
  std::string rawBytes = {};
  std::function<void(const BodyWriter&)> stream = {};
  bool isLast = false;
};

std::string streamHead(const HttpReply& reply) {
  std::string head = "HTTP/1.1 " + std::to_string(reply.status) +
                     " OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\nContent-Type: " +
                     reply.contentType + "\r\n";
  for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
  return head + "\r\n";
}

// httplib hands its handlers no connection, but calls them on the connection's thread.
thread_local Exchange currentExchange;

}  // namespace

bool isSameHeaderName(std::string_view one, std::string_view other) {
  return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

std::string HttpRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (isSameHeaderName(key, name)) return value;
  }
  return {};
}

class HttpServer::Listener final : public httplib::Server {
 public:
  explicit Listener(HttpServer::Handler handler) : handler_(std::move(handler)) {
    set_tcp_nodelay(true);
    set_keep_alive_max_count(std::numeric_limits<std::uint32_t>::max());
    set_keep_alive_timeout(kPatienceSeconds);
    set_read_timeout(kPatienceSeconds);
    // The default also sets SO_REUSEPORT, with which two services would share a port.
    set_socket_options([](socket_t socket) {
      const int on = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    set_pre_routing_handler([this](const httplib::Request& head, httplib::Response& response) {
      answer(head, response);
      return HandlerResponse::Handled;
    });
  }

  bool listenOn(std::uint16_t wanted) {
    const int bound = wanted == 0
                          ? bind_to_any_port("127.0.0.1")
                          : (bind_to_port("127.0.0.1", wanted) ? static_cast<int>(wanted) : -1);
    if (bound <= 0) return false;
    port_ = static_cast<std::uint16_t>(bound);
    // stop() does nothing before the accepting loop runs, which first asks for its queue.
    std::promise<void> accepting;
    new_task_queue = [&accepting] {
      accepting.set_value();
      return new ThreadPerConnection();
    };
    accepting_ = std::thread([this] { listen_after_bind(); });
    accepting.get_future().wait();
    return true;
  }

  std::uint16_t port() const { return port_; }

  void stopAll() {
    {
      const std::lock_guard lock(mutex_);
      isStopping_ = true;
      for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
    }
    stopping_.notify_all();
    stop();
    if (accepting_.joinable()) accepting_.join();
  }

 private:
  bool process_and_close_socket(socket_t socket) override {
    if (enter(socket)) {
      const int on = 1;
      ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      serve(socket);
    }
    leave(socket);
    return true;
  }

  void serve(socket_t socket) {
    HttpConnection connection(socket);
    while (connection.awaitRequest()) {
      currentExchange = Exchange{&connection};
      bool isClosed = false;
      const bool isAnswered = process(*this, connection, isClosed);
      const bool isUsable = connection.finish(currentExchange.ending, currentExchange.rawBytes);
      if (currentExchange.stream) {
        currentExchange.stream(
            [&](std::string_view piece) { return piece.empty() || connection.sendChunk(piece); });
        connection.sendChunk({});
        return;
      }
      if (!isAnswered || isClosed || !isUsable || currentExchange.isLast) return;
    }
  }

  // Newer versions of httplib are told the addresses of both ends, which nobody asks for.
  template <typename Self>
  static bool process(Self& self, HttpConnection& connection, bool& isClosed) {
    if constexpr (requires {
                    self.process_request(connection, "", 0, "", 0, false, isClosed, nullptr);
                  }) {
      return self.process_request(connection, "", 0, "", 0, false, isClosed, nullptr);
    } else {
      return self.process_request(connection, false, isClosed, nullptr);
    }
  }

  void answer(const httplib::Request& head, httplib::Response& response) {
    Exchange& exchange = currentExchange;
    HttpRequest request = requestFrom(head, port_);
    bool isWhole = !bodyIsAnnounced(request);
    HttpReply reply = handler_(request, [&] {
      const std::optional<int> refusal = readBody(*exchange.connection, request);
      isWhole = !refusal;
      return refusal;
    });
    exchange.ending = wait(reply);
    if (reply.stream) {
      exchange.ending = Ending::RawBytes;
      exchange.rawBytes = streamHead(reply);
      exchange.stream = std::move(reply.stream);
      return;
    }
    if (exchange.ending == Ending::RawBytes) {
      exchange.rawBytes = std::move(reply.body);
      return;
    }
    response.status = reply.status;
    if (!reply.location.empty()) response.set_header("Location", reply.location);
    for (const auto& [name, value] : reply.headers) response.set_header(name, value);
    response.set_content(reply.body, reply.contentType);
    // What is left of the body would be taken for the next request.
    exchange.isLast = !isWhole;
  }

  Ending wait(const HttpReply& reply) {
    std::unique_lock lock(mutex_);
    const auto isStopping = [this] { return isStopping_; };
    if (reply.ending == Ending::NoAnswer) {
      stopping_.wait(lock, isStopping);
      return Ending::Drop;
    }
    if (reply.delay.count() == 0) return reply.ending;
    return stopping_.wait_for(lock, reply.delay, isStopping) ? Ending::Drop : reply.ending;
  }

  bool enter(int socket) {
    const std::lock_guard lock(mutex_);
    if (isStopping_) return false;
    sockets_.insert(socket);
    return true;
  }

  void leave(int socket) {
    const std::lock_guard lock(mutex_);
    sockets_.erase(socket);
    // Closed under the lock: stopAll must not shut down another file of the same number.
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
  }

  HttpServer::Handler handler_;
  std::uint16_t port_ = 0;
  std::thread accepting_;
  std::mutex mutex_;
  std::condition_variable stopping_;
  bool isStopping_ = false;
  std::set<int> sockets_;
};

HttpServer::HttpServer(std::unique_ptr<Listener> listener) : listener_(std::move(listener)) {}

HttpServer::~HttpServer() { stop(); }

std::unique_ptr<HttpServer> HttpServer::start(std::uint16_t port, Handler handler) {
  auto listener = std::make_unique<Listener>(std::move(handler));
  if (!listener->listenOn(port)) return nullptr;
  return std::unique_ptr<HttpServer>(new HttpServer(std::move(listener)));
}

std::uint16_t HttpServer::port() const { return listener_->port(); }

void HttpServer::stop() { listener_->stopAll(); }

}  // namespace pelmar::service
