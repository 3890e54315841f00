#pragma once

// A program under test, started with an environment of its own; its standard error is read line by
// line as it comes. Killed at the end of its life when it still runs.

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace pelmar::test {

// Starts `command` (its first word the program's path) with exactly this environment and standard
// error, and with SIGPIPE as a fresh process has it: the local service ignores it in the tests'.
pid_t startProgram(const std::vector<std::string>& command,
                   const std::vector<std::string>& environment, int errors);

class ChildProcess {
 public:
  // `command` begins with the program's path; `environment` holds NAME=value and is all of it.
  ChildProcess(const std::vector<std::string>& command,
               const std::vector<std::string>& environment);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }

  // The next line that holds `text`, behind those answered before; none when the program closes its
  // standard error, or a minute passes, first.
  std::optional<std::string> waitForLine(const std::string& text);

  // Passes over every line that the program has written by now.
  void skipLines();

  // Blocks until the program has ended: its exit status, or minus the signal that ended it.
  int waitForExit();

  void kill(int signal) const;

  // All lines so far.
  std::vector<std::string> lines();

 private:
  bool readAvailable();  // false at the end

  pid_t pid_ = 0;
  std::optional<int> exitStatus_;
  int errors_ = -1;
  std::mutex mutex_;  // over all below
  std::condition_variable changed_;
  std::string unfinished_;
  std::vector<std::string> lines_;
  std::size_t answered_ = 0;
  bool isClosed_ = false;
  std::thread reader_;
};

}  // namespace pelmar::test
