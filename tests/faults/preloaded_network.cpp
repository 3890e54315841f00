// The calls on sockets that can be made to fail, and the pauses.

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>

#include "tests/faults/faults.h"
#include "tests/faults/next.h"
#include "tests/faults/preloaded.h"
#include "tests/faults/recording.h"

using namespace pelmar::test;  // NOLINT: the functions below are the system's, in no namespace

namespace {

// A socket's name is the request whose answer is awaited there, else this.
constexpr const char* kIdle = "idle";

bool failsAt(const char* call, const std::string& where) {
  const auto fault = lockstep().faultOf(call, where);
  if (fault) errno = *fault;
  return fault.has_value();
}

bool failsAt(const char* call, int descriptor, std::size_t& length) {
  const std::string* name = nameOf(descriptor);
  if (name == nullptr || !failsAt(call, *name)) return false;
  if (errno != kHalf) return true;
  length = (length + 1) / 2;
  return false;
}

// "POST /path", where `bytes` begin a request.
std::string requestIn(std::string_view bytes) {
  if (!bytes.starts_with("POST ") && !bytes.starts_with("GET ")) return {};
  return std::string(bytes.substr(0, bytes.find(' ', bytes.find(' ') + 1)));
}

// The service answers with JSON objects.
bool endsAnswer(std::string_view bytes) { return bytes.ends_with('}'); }

bool isPauseOfThePoll(const timespec& duration) {
  constexpr long kNanoseconds = 15625000;  // as the testing program sets it: --poll 0.015625
  return duration.tv_sec == 0 && duration.tv_nsec == kNanoseconds;
}

}  // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (domain != AF_INET) return nextFunction(&::socket, "socket")(domain, type, protocol);
  if (failsAt("socket", kIdle)) return -1;
  const int descriptor = nextFunction(&::socket, "socket")(domain, type, protocol);
  setName(descriptor, kIdle);
  return descriptor;
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  if (nameOf(descriptor) != nullptr && failsAt("connect", kIdle)) return -1;
  return nextFunction(&::connect, "connect")(descriptor, address, size);
}

ssize_t send(int descriptor, const void* bytes, std::size_t length, int flags) {
  const auto request = requestIn({static_cast<const char*>(bytes), length});
  if (failsAt("send", descriptor, length)) return -1;
  const ssize_t count = nextFunction(&::send, "send")(descriptor, bytes, length, flags);
  if (count > 0 && nameOf(descriptor) != nullptr && !request.empty()) {
    setName(descriptor, request);
    record({"sent", request});
  }
  return count;
}

// A look at whether an unused connection still stands (MSG_PEEK) reads no answer.
ssize_t recv(int descriptor, void* bytes, std::size_t length, int flags) {
  const bool isLook = (flags & MSG_PEEK) != 0;
  if (failsAt(isLook ? "recv_look" : "recv", descriptor, length)) return -1;
  const ssize_t count = nextFunction(&::recv, "recv")(descriptor, bytes, length, flags);
  if (isLook || count <= 0 || nameOf(descriptor) == nullptr) return count;
  if (endsAnswer({static_cast<const char*>(bytes), static_cast<std::size_t>(count)})) {
    record({"answered"});
    setName(descriptor, kIdle);
  }
  return count;
}

int poll(pollfd* descriptors, nfds_t count, int timeout) {
  const auto* watched = std::find_if(descriptors, descriptors + count,
                                     [](const pollfd& p) { return nameOf(p.fd) != nullptr; });
  if (watched != descriptors + count && failsAt("poll", *nameOf(watched->fd))) return -1;
  return nextFunction(&::poll, "poll")(descriptors, count, timeout);
}

int nanosleep(const timespec* duration, timespec* rest) {
  if (!lockstep().isOn()) return nextFunction(&::nanosleep, "nanosleep")(duration, rest);
  if (failsAt("nanosleep", "pause")) {
    if (rest != nullptr) *rest = *duration;
    return -1;
  }
  if (isPauseOfThePoll(*duration)) lockstep().pass();
  return 0;
}

}  // extern "C"
