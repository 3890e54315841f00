#include "platform/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/uninterrupted.h"

extern char** environ;

namespace pelmar {
namespace {

std::string readToEnd(int descriptor) {
  std::string output;
  char buffer[4096];
  for (;;) {
    const ssize_t count = uninterrupted([&] { return ::read(descriptor, buffer, sizeof buffer); });
    if (count <= 0) return output;
    output.append(buffer, static_cast<std::size_t>(count));
  }
}

std::optional<pid_t> start(const std::string& tool, const std::vector<std::string>& arguments,
                           int output) {
  std::vector<char*> argv = {const_cast<char*>(tool.c_str())};
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions{};
  if (::posix_spawn_file_actions_init(&actions) != 0) return std::nullopt;
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int failure = ::posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) return std::nullopt;
  return pid;
}

}  // namespace

std::optional<std::string> outputOf(const std::string& tool,
                                    const std::vector<std::string>& arguments) {
  int ends[2];
  if (::pipe(ends) != 0) return std::nullopt;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  const auto pid = start(tool, arguments, ends[1]);
  ::close(ends[1]);
  // Read before the wait: a tool that fills the pipe would never end.
  std::string output = readToEnd(ends[0]);
  ::close(ends[0]);
  if (!pid) return std::nullopt;
  uninterrupted([&] { return ::waitpid(*pid, nullptr, 0); });
  return output;
}

}  // namespace pelmar
