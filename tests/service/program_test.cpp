#include <csignal>
#include <vector>

#include "tests/service/fixture.h"
#include "tests/support/child_process.h"

namespace pelmar::service {
namespace {

// The program, its standard output where its standard error goes.
class Program : public test::ChildProcess {
 public:
  explicit Program(std::vector<std::string> arguments)
      : ChildProcess(command(std::move(arguments)), {}) {}

 private:
  static std::vector<std::string> command(std::vector<std::string> arguments) {
    const std::vector<std::string> shell = {"/bin/sh", "-c", R"(exec "$0" "$@" >&2)",
                                            PELMAR_LOCAL_SERVICE};
    arguments.insert(arguments.begin(), shell.begin(), shell.end());
    return arguments;
  }
};

TEST(LocalServiceProgram, SaysWhereItListensAndEndsOnSigterm) {
  const test::TempRoot root;
  test::writeFile(root.path() + "/key", std::string(kKey) + "\n");
  test::writeFile(root.path() + "/devices", R"([{"device_token":"d","tenant_slug":"t",)"
                                            R"("process":"Cowork","answer":{"agent_slug":"a"}}])");
  Program program({"--database", root.path() + "/s.db", "--key-file", root.path() + "/key",
                   "--agent-config", root.path() + "/devices"});
  const std::string line = program.waitForLine("").value_or("");
  ASSERT_EQ(line.rfind("listening on http://127.0.0.1:", 0), 0U) << line;
  const std::string url = line.substr(13);
  Client client(url);
  client.send(requestTo(url, "GET", "/api/pelmar/v1/endpoint/agent-config/?process=Cowork", "",
                        "X-Pel-Device: d\r\nX-Pel-Tenant: t\r\nConnection: close\r\n"));
  EXPECT_NE(client.readToEnd().find(R"({"agent_slug":"a"})"), std::string::npos);
  EXPECT_EQ(program.waitForLine("").value_or("").rfind("page at " + url + "/?token=", 0), 0U);
  program.kill(SIGTERM);
  EXPECT_EQ(program.waitForExit(), 0);
}

TEST(LocalServiceProgram, ComplainsAboutBadArguments) {
  const std::vector<std::vector<std::string>> all = {
      {}, {"--port"}, {"--what", "x"}, {"--database", "d", "--key-file", "k", "--port", "70000"}};
  for (const auto& arguments : all) {
    Program program(arguments);
    EXPECT_EQ(program.waitForLine("").value_or("").rfind("pelmar-local-service: ", 0), 0U);
    EXPECT_EQ(program.waitForExit(), 2);
  }
}

}  // namespace
}  // namespace pelmar::service
