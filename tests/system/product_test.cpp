// The product itself, with its real places: run where a mount namespace puts test folders there.

#include <gmock/gmock.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/system/agent_test.h"

namespace pelmar::test {
namespace {

// Whether this machine lets a process have a mount namespace of its own.
bool hasMountNamespaces() { return std::system("bwrap --dev-bind / / true >/dev/null 2>&1") == 0; }

class ProductTest : public AgentTest {
 protected:
  void SetUp() override {
    if (!hasMountNamespaces()) {
      GTEST_SKIP()
          << "bubblewrap cannot make a mount namespace on this machine: the product's real "
             "places are not tested here";
    }
    writeFile(root_.ioreg(), "#!/bin/sh\necho '\"IOPlatformUUID\" = \"UUID-OF-THE-MACHINE\"'\n");
    makeExecutable(root_.ioreg());
    writeFile(root_.setup() + "/left-by", "setup");
  }

  // The product, seeing the folders of the test at the real places, with HOME and PELMAR_ROOT
  // leading elsewhere.
  std::unique_ptr<ChildProcess> startProduct(const std::vector<std::string>& switches) {
    const std::string home = ::getpwuid(::getuid())->pw_dir;  // NOLINT(concurrency-mt-unsafe)
    std::vector<std::string> command = {
        "/usr/bin/env", "bwrap", "--die-with-parent", "--dev", "/dev", "--proc", "/proc"};
    const auto mount = [&command](const char* how, const std::string& from, const std::string& at) {
      command.insert(command.end(), {how, from, at});
    };
    for (const char* folder : {"/usr/bin", "/usr/lib", "/usr/lib64", "/etc"}) {
      mount("--ro-bind-try", folder, folder);
    }
    for (const char* folder : {"bin", "lib", "lib64"}) {
      mount("--symlink", std::string("usr/") + folder, std::string("/") + folder);
    }
    mount("--bind", root_.home(), home);
    mount("--ro-bind", root_.setup(), "/private/tmp/dev.pelmar.setup");
    mount("--ro-bind", root_.ioreg(), "/usr/sbin/ioreg");
    mount("--ro-bind", PELMAR_PRODUCT, "/product");
    command.insert(command.end(), {"/product", "--poll", "0.01", "--verbose"});
    command.insert(command.end(), switches.begin(), switches.end());
    return std::make_unique<ChildProcess>(
        command, std::vector<std::string>{"PATH=/usr/bin:/bin", "HOME=/elsewhere",
                                          "PELMAR_ROOT=/elsewhere"});
  }
};

TEST_F(ProductTest, ReportsFromTheHomeOfThePasswordDatabaseAndNamesTheMachine) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "hello"));
  const auto agent = startProduct({"--from-start"});
  ASSERT_TRUE(waitForSteps(1)) << ::testing::PrintToString(agent->lines());
  waitForAnotherPass(*agent);
  EXPECT_EQ(service_->steps().front().at("hardware_uuid"), "UUID-OF-THE-MACHINE");
  EXPECT_THAT(contentOf(root_.cursor()), ::testing::HasSubstr("s1.jsonl"));
  EXPECT_THAT(contentOf(root_.activityLog()), ::testing::HasSubstr("1 step"));
}

TEST_F(ProductTest, FindsTheDeviceIdentityAtItsRealPlace) {
  enrollDevice("from-device");
  const auto agent = startProduct({});
  EXPECT_TRUE(agent->waitForLine("profile=device agent=from-device"));
}

TEST_F(ProductTest, WithoutAProfileExitsWithStatusOne) {
  const auto agent = startProduct({});
  EXPECT_EQ(agent->waitForExit(), 1);
}

}  // namespace
}  // namespace pelmar::test
