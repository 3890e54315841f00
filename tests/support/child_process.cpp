#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>

#include "tests/support/sockets.h"

namespace pelmar::test {
namespace {

constexpr std::chrono::minutes kPatience{1};

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const auto& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

pid_t startProgram(const std::vector<std::string>& command,
                   const std::vector<std::string>& environment, int errors) {
  posix_spawnattr_t attributes{};
  ::posix_spawnattr_init(&attributes);
  sigset_t fresh{};
  ::sigemptyset(&fresh);
  ::sigaddset(&fresh, SIGPIPE);
  ::posix_spawnattr_setsigdefault(&attributes, &fresh);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  pid_t pid = 0;
  const int failure = ::posix_spawn(&pid, command.front().c_str(), &actions, &attributes,
                                    pointersTo(command).data(), pointersTo(environment).data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  if (failure != 0) throw std::runtime_error("cannot start " + command.front());
  return pid;
}

ChildProcess::ChildProcess(const std::vector<std::string>& command,
                           const std::vector<std::string>& environment) {
  int ends[2];
  openPipe(ends);
  ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
  errors_ = ends[0];
  pid_ = startProgram(command, environment, ends[1]);
  ::close(ends[1]);
  reader_ = std::thread([this] {
    pollfd waiting{.fd = errors_, .events = POLLIN, .revents = 0};
    while (::poll(&waiting, 1, -1) >= 0) {
      const std::lock_guard lock(mutex_);
      if (!readAvailable()) return;
    }
  });
}

ChildProcess::~ChildProcess() {
  if (!exitStatus_) {
    kill(SIGKILL);
    waitForExit();
  }
  ::close(errors_);
}

std::optional<std::string> ChildProcess::waitForLine(const std::string& text) {
  std::unique_lock lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (;;) {
    while (answered_ < lines_.size()) {
      const std::string& line = lines_[answered_++];
      if (line.find(text) != std::string::npos) return line;
    }
    if (isClosed_) return std::nullopt;
    if (changed_.wait_until(lock, deadline) == std::cv_status::timeout) return std::nullopt;
  }
}

void ChildProcess::skipLines() {
  const std::lock_guard lock(mutex_);
  readAvailable();
  answered_ = lines_.size();
}

int ChildProcess::waitForExit() {
  if (exitStatus_) return *exitStatus_;
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  reader_.join();
  exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return *exitStatus_;
}

void ChildProcess::kill(int signal) const { ::kill(pid_, signal); }

std::vector<std::string> ChildProcess::lines() {
  const std::lock_guard lock(mutex_);
  return lines_;
}

bool ChildProcess::readAvailable() {
  char buffer[4096];
  for (;;) {
    const ssize_t count = ::read(errors_, buffer, sizeof buffer);
    if (count < 0 && errno == EAGAIN) break;
    if (count <= 0) {
      isClosed_ = true;
      break;
    }
    unfinished_.append(buffer, static_cast<std::size_t>(count));
  }
  for (auto feed = unfinished_.find('\n'); feed != std::string::npos;
       feed = unfinished_.find('\n')) {
    lines_.push_back(unfinished_.substr(0, feed));
    unfinished_.erase(0, feed + 1);
  }
  changed_.notify_all();
  return !isClosed_;
}

}  // namespace pelmar::test
