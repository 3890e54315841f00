#include "tests/network/name_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tests/support/sockets.h"

namespace pelmar::test {
namespace {

// Where things stand in a message (RFC 1035, section 4.1).
constexpr std::size_t kHeadSize = 12;
constexpr std::size_t kAnswerCount = 7;
constexpr std::size_t kTypeAndClassSize = 4;
constexpr char kTypeOfIpv4 = 1;

// Behind the question: its name by reference, type A, class IN, 1 s, 4 bytes, 127.0.0.1.
const std::string kAnswer("\xC0\x0C\0\1\0\1\0\0\0\1\0\4\x7F\0\0\1", 16);

}  // namespace

NameServer::NameServer(Manner manner) : socket_(::socket(AF_INET, SOCK_DGRAM, 0)), manner_(manner) {
  constexpr in_port_t kPort = 53;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot be a name server");
  }
  openPipe(wakeUp_);
  thread_ = std::thread([this] { serve(); });
}

NameServer::~NameServer() {
  ::close(wakeUp_[1]);
  thread_.join();
  ::close(wakeUp_[0]);
  ::close(socket_);
}

void NameServer::become(Manner manner) {
  const std::lock_guard lock(mutex_);
  manner_ = manner;
}

void NameServer::waitForQuestions(std::size_t count) const {
  std::unique_lock lock(mutex_);
  asked_.wait(lock, [&] { return questionCount_ >= count; });
}

void NameServer::serve() {
  for (;;) {
    pollfd watched[] = {{wakeUp_[0], POLLIN, 0}, {socket_, POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) continue;
    if (watched[0].revents != 0) return;
    char buffer[512];
    sockaddr_in from{};
    socklen_t size = sizeof from;
    auto* sender = reinterpret_cast<sockaddr*>(&from);
    const ssize_t count = ::recvfrom(socket_, buffer, sizeof buffer, 0, sender, &size);
    if (count < static_cast<ssize_t>(kHeadSize)) continue;
    const std::lock_guard lock(mutex_);
    ++questionCount_;
    asked_.notify_all();
    if (manner_ == Manner::silent) continue;
    const auto reply = answerTo({buffer, static_cast<std::size_t>(count)});
    ::sendto(socket_, reply.data(), reply.size(), 0, sender, size);
  }
}

std::string NameServer::answerTo(std::string question) const {
  constexpr char kIsAnswer = static_cast<char>(0x81);  // and recursion was desired
  constexpr char kNoError = static_cast<char>(0x80);   // and recursion is available
  constexpr char kNoSuchName = static_cast<char>(0x83);
  const auto endOfName = question.find('\0', kHeadSize);
  const char type = question.at(endOfName + 2);
  question.resize(endOfName + 1 + kTypeAndClassSize);
  question[2] = kIsAnswer;
  question[3] = manner_ == Manner::denying ? kNoSuchName : kNoError;
  question.replace(kAnswerCount - 1, 6, 6, '\0');
  if (manner_ == Manner::denying || type != kTypeOfIpv4) return question;
  question[kAnswerCount] = 1;
  return question + kAnswer;
}

}  // namespace pelmar::test
