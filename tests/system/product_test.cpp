// The product itself, with its real places: run where a mount namespace puts test folders there.

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "tests/system/agent_test.h"

namespace pelmar::test {
namespace {

// Whether this machine lets a process have a mount namespace of its own.
bool hasMountNamespaces() { return std::system("bwrap --dev-bind / / true >/dev/null 2>&1") == 0; }

// The journal's socket, at the place where the namespace shows it.
class JournalSocket {
 public:
  explicit JournalSocket(std::string folder) : folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/socket", folder_.c_str());
    if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot listen as the journal");
    }
  }
  ~JournalSocket() { ::close(socket_); }
  JournalSocket(const JournalSocket&) = delete;
  JournalSocket& operator=(const JournalSocket&) = delete;

  const std::string& folder() const { return folder_; }

  // The datagrams that wait to be read.
  std::vector<std::string> entries() const {
    std::vector<std::string> entries;
    char buffer[4096];
    for (;;) {
      const ssize_t count = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
      if (count <= 0) return entries;
      entries.emplace_back(buffer, static_cast<std::size_t>(count));
    }
  }

 private:
  std::string folder_;
  int socket_ = ::socket(AF_UNIX, SOCK_DGRAM, 0);
};

class ProductTest : public AgentTest {
 protected:
  void SetUp() override {
    if (!hasMountNamespaces()) {
      GTEST_SKIP()
          << "bubblewrap cannot make a mount namespace on this machine: the product's real "
             "places are not tested here";
    }
    writeFile(root_.setup() + "/left-by", "setup");
  }

  // The product, seeing the folders of the test at the real places, with HOME and PELMAR_ROOT
  // leading elsewhere.
  std::unique_ptr<ChildProcess> startProduct(const std::vector<std::string>& switches) {
    std::vector<std::string> command = {"/product", "--poll", "0.01", "--verbose"};
    command.insert(command.end(), switches.begin(), switches.end());
    return startInNamespace(command);
  }

  std::unique_ptr<ChildProcess> startInNamespace(const std::vector<std::string>& program) {
    // With the slash at its end that some databases have.
    writeFile(root_.path() + "/passwd",
              "person:x:" + std::to_string(::getuid()) + ":0::/people/person/:/bin/sh\n");
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
    mount("--ro-bind", root_.path() + "/passwd", "/etc/passwd");
    mount("--bind", root_.home(), "/people/person");
    mount("--ro-bind", root_.setup(), "/private/tmp/dev.pelmar.setup");
    mount("--ro-bind", root_.ioreg(), "/usr/sbin/ioreg");
    mount("--ro-bind", PELMAR_PRODUCT, "/product");
    mount("--bind", journal_.folder(), "/run/systemd/journal");
    command.insert(command.end(), program.begin(), program.end());
    return std::make_unique<ChildProcess>(
        command, std::vector<std::string>{"PATH=/usr/bin:/bin", "HOME=/elsewhere",
                                          "PELMAR_ROOT=/elsewhere"});
  }

  JournalSocket journal_{root_.path() + "/journal"};
};

TEST_F(ProductTest, ReportsFromTheHomeOfThePasswordDatabaseAndNamesTheMachine) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "hello"));
  const auto agent = startProduct({"--from-start"});
  ASSERT_TRUE(waitForSteps(1)) << ::testing::PrintToString(agent->lines());
  waitForAnotherPass(*agent);
  EXPECT_EQ(service_->steps().front().at("hardware_uuid"), kHardwareUuid);
  EXPECT_THAT(contentOf(root_.cursor()),
              ::testing::HasSubstr(R"("\/people\/person\/.claude\/projects)"));
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
  EXPECT_THAT(agent->lines(), ::testing::SizeIs(3));
  EXPECT_THAT(journal_.entries(), ::testing::IsEmpty());
}

TEST_F(ProductTest, LogsToTheJournalWithItsFieldsWhenStandardErrorLeadsThere) {
  // As systemd tells a service: the device and inode of its standard error.
  const auto agent = startInNamespace(
      {"/usr/bin/sh", "-c", "JOURNAL_STREAM=$(stat -Lc %d:%i /proc/self/fd/2) exec /product"});
  EXPECT_EQ(agent->waitForExit(), 1);
  EXPECT_THAT(agent->lines(), ::testing::IsEmpty());
  const auto entries = journal_.entries();
  ASSERT_THAT(entries, ::testing::SizeIs(3));
  EXPECT_THAT(entries[0],
              ::testing::StartsWith("PRIORITY=5\nSYSLOG_IDENTIFIER=PelmarCoworkWatcher\n"
                                    "SUBSYSTEM=dev.pelmar.setup\n"
                                    "CATEGORY=cowork-watcher\n"
                                    "MESSAGE=PelmarCoworkWatcher starting (pid="));
  EXPECT_EQ(entries[1],
            "PRIORITY=3\nSYSLOG_IDENTIFIER=PelmarCoworkWatcher\nSUBSYSTEM=dev.pelmar.setup\n"
            "CATEGORY=cowork-watcher\nMESSAGE=No profile in ~/.pelmar/config (need [claude-cowork] "
            "or [claude-code]) — exiting\n");
}

}  // namespace
}  // namespace pelmar::test
