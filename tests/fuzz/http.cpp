// The bytes that come back over a connection, for two requests through one client: an input holds
// an answer between each two lines "----". libcurl gets a pair of connected sockets from this
// program instead of one from the system, so that nothing is ever waited for: where the client
// would, the other side ends the connection.

#include <dlfcn.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/http.h"
#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

class Peer {
 public:
  void begin(std::vector<std::string_view> answers) {
    answers_ = std::move(answers);
    requests_.clear();
  }

  int connectedSocket() {
    int pair[2] = {-1, -1};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0, "sockets can be had");
    closeEnd();
    client_ = pair[0];
    end_ = pair[1];
    return client_;
  }

  bool owns(int socket) const { return socket == client_ && end_ >= 0; }

  // Takes a request, which comes in one piece, and answers it at once.
  void take(std::string_view request) {
    requests_.emplace_back(request);
    const auto next = requests_.size() - 1;
    if (next >= answers_.size()) return;
    static_cast<void>(::write(end_, answers_[next].data(), answers_[next].size()));
  }

  // Closes: the client has read all that there was.
  void closeEnd() {
    if (end_ >= 0) ::close(end_);
    end_ = -1;
  }

  const std::vector<std::string>& requests() const { return requests_; }

 private:
  int client_ = -1;
  int end_ = -1;
  std::vector<std::string_view> answers_{};
  std::vector<std::string> requests_{};
};

Peer& peer() {
  static Peer peer;
  return peer;
}

template <typename Function>
Function* systems(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

void checkExchange(const HttpExchange& exchange) {
  require(!exchange.isTimeout(), "nothing is waited for");
  if (exchange.error) {
    require(!exchange.error->empty(), "a failure has a reason");
  } else {
    require(exchange.status >= 100, "an answer has a status");
  }
}

void check(std::string_view input) {
  peer().begin(partsOf(input));
  HttpClient client;
  for (const bool isPost : {true, false}) {
    HttpRequest request{.url = "http://127.0.0.1:9/path",
                        .headers = {{"X-Pel-Key", "key"}},
                        .deadline = std::chrono::seconds(5)};
    if (isPost) request.body = "{}";
    const auto before = peer().requests().size();
    checkExchange(client.send(request));
    require(peer().requests().size() <= before + 1, "a request is sent at most once");
  }
  for (const auto& request : peer().requests()) {
    require(request.starts_with("POST /path HTTP/1.1\r\n") ||
                request.starts_with("GET /path HTTP/1.1\r\n"),
            "a request is the client's");
  }
  peer().closeEnd();
}

}  // namespace
}  // namespace pelmar::fuzz

using pelmar::fuzz::peer;
using pelmar::fuzz::systems;

// In place of the system's, also for libcurl.
extern "C" int socket(int family, int type, int protocol) {
  if (family == AF_INET) return peer().connectedSocket();
  return systems<int(int, int, int)>("socket")(family, type, protocol);
}

extern "C" int connect(int socket, const sockaddr* address, socklen_t size) {
  if (peer().owns(socket)) return 0;
  return systems<int(int, const sockaddr*, socklen_t)>("connect")(socket, address, size);
}

extern "C" ssize_t send(int socket, const void* bytes, std::size_t size, int flags) {
  if (!peer().owns(socket)) {
    return systems<ssize_t(int, const void*, std::size_t, int)>("send")(socket, bytes, size, flags);
  }
  peer().take({static_cast<const char*>(bytes), size});
  return static_cast<ssize_t>(size);
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
  static auto* const systemPoll = systems<int(pollfd*, nfds_t, int)>("poll");
  const int ready = systemPoll(descriptors, count, 0);
  if (ready != 0 || timeout == 0) return ready;
  const bool isForAnswer = std::any_of(descriptors, descriptors + count, [](const pollfd& watched) {
    return peer().owns(watched.fd) && (watched.events & POLLIN) != 0;
  });
  if (isForAnswer) peer().closeEnd();
  return systemPoll(descriptors, count, timeout);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(pelmar::fuzz::textOf(data, size));
  return 0;
}
