#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <vector>

#include "tests/service/fixture.h"

extern char** environ;

namespace pelmar::service {
namespace {

// The program with its standard output and standard error in one pipe.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), PELMAR_LOCAL_SERVICE);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    EXPECT_EQ(::posix_spawn(&process_, pointers[0], &actions, nullptr, pointers.data(), environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    output_ = ::fdopen(ends[0], "r");
  }

  ~Program() { std::fclose(output_); }

  std::string readLine() {
    std::array<char, 512> line{};
    return std::fgets(line.data(), line.size(), output_) == nullptr ? "" : line.data();
  }

  void signal(int number) const { ::kill(process_, number); }

  int exitStatus() const {
    int status = 0;
    ::waitpid(process_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process_ = 0;
  std::FILE* output_ = nullptr;
};

TEST(LocalServiceProgram, SaysWhereItListensAndEndsOnSigterm) {
  const TemporaryFolder folder;
  std::ofstream(folder / "key") << kKey << '\n';
  std::ofstream(folder / "devices") << R"([{"device_token":"d","tenant_slug":"t",)"
                                       R"("process":"Cowork","answer":{"agent_slug":"a"}}])";
  Program program({"--database", folder / "s.db", "--key-file", folder / "key", "--agent-config",
                   folder / "devices"});
  const std::string line = program.readLine();
  ASSERT_EQ(line.rfind("listening on http://127.0.0.1:", 0), 0U) << line;
  const std::string url = line.substr(13, line.size() - 14);
  Client client(url);
  client.send(requestTo(url, "GET", "/api/pelmar/v1/endpoint/agent-config/?process=Cowork", "",
                        "X-Pel-Device: d\r\nX-Pel-Tenant: t\r\nConnection: close\r\n"));
  EXPECT_NE(client.readToEnd().find(R"({"agent_slug":"a"})"), std::string::npos);
  EXPECT_EQ(program.readLine().rfind("page at " + url + "/?token=", 0), 0U);
  program.signal(SIGTERM);
  EXPECT_EQ(program.exitStatus(), 0);
}

TEST(LocalServiceProgram, ComplainsAboutBadArguments) {
  const std::vector<std::vector<std::string>> all = {
      {}, {"--port"}, {"--what", "x"}, {"--database", "d", "--key-file", "k", "--port", "70000"}};
  for (const auto& arguments : all) {
    Program program(arguments);
    EXPECT_EQ(program.readLine().rfind("pelmar-local-service: ", 0), 0U);
    EXPECT_EQ(program.exitStatus(), 2);
  }
}

}  // namespace
}  // namespace pelmar::service
