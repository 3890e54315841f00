#include "status/agent_process.h"

#include <gmock/gmock.h>

namespace pelmar::status {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(AgentsIn, AgentIsFoundWithItsAgeAndSwitches) {
  const auto agents = agentsIn(
      "    1 10-00:00:00 /sbin/init\n"
      " 4711 1-02:03:04 /home/u/.local/bin/PelmarCoworkWatcher --poll 5 --from-start --verbose\n");
  ASSERT_THAT(agents, SizeIs(1));
  EXPECT_EQ(agents[0].pid, "4711");
  EXPECT_EQ(agents[0].runningFor, std::chrono::seconds(93784));
  EXPECT_EQ(agents[0].commandLine.pollInterval, 5);
  EXPECT_TRUE(agents[0].commandLine.fromStart);
  EXPECT_TRUE(agents[0].commandLine.verbose);
}

TEST(AgentsIn, ElapsedTimesHaveHoursAndDaysOnlyWhereNeeded) {
  const auto agents = agentsIn(
      "1 00:00 PelmarCoworkWatcher\n2 01:59 PelmarCoworkWatcher\n"
      "3 01:00:00 PelmarCoworkWatcher\n4 2-00:00:01 PelmarCoworkWatcher\n");
  ASSERT_THAT(agents, SizeIs(4));
  EXPECT_EQ(agents[0].runningFor, std::chrono::seconds(0));
  EXPECT_EQ(agents[1].runningFor, std::chrono::seconds(119));
  EXPECT_EQ(agents[2].runningFor, std::chrono::seconds(3600));
  EXPECT_EQ(agents[3].runningFor, std::chrono::seconds(172801));
}

TEST(AgentsIn, FolderOfTheProgramMayHoldBlanks) {
  EXPECT_THAT(agentsIn("1 00:01 /Users/u/Application Support/x/PelmarCoworkWatcher --poll 1\n"),
              SizeIs(1));
}

TEST(AgentsIn, ProgramsThatOnlyNameTheAgentAreNone) {
  EXPECT_THAT(agentsIn("1 00:01 vim /src/PelmarCoworkWatcher\n"
                       "2 00:01 /usr/bin/less /src/PelmarCoworkWatcher\n"
                       "3 00:01 /usr/bin/tool --of=/src/PelmarCoworkWatcher\n"
                       "4 00:01 grep PelmarCoworkWatcher\n"
                       "5 00:01 /bin/OldPelmarCoworkWatcher\n"
                       "6 00:01 /bin/PelmarCoworkWatcher.sh\n"
                       "7 00:01\n\n"),
              IsEmpty());
}

}  // namespace
}  // namespace pelmar::status
