#include "app/command_line.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace pelmar {
namespace {

CommandLine parsed(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "PelmarCoworkWatcher");
  return parseCommandLine(arguments);
}

double intervalOf(std::vector<std::string> arguments) {
  return parsed(std::move(arguments)).pollInterval;
}

TEST(CommandLine, WithoutArgumentsEveryDefaultHolds) {
  const CommandLine commandLine = parsed({});
  EXPECT_EQ(commandLine.pollInterval, 2.0);
  EXPECT_FALSE(commandLine.fromStart);
  EXPECT_FALSE(commandLine.verbose);
}

TEST(CommandLine, WithoutEvenAProgramPathEveryDefaultHolds) {
  EXPECT_EQ(parseCommandLine({}).pollInterval, 2.0);
}

TEST(CommandLine, ProgramPathIsNoSwitch) {
  const CommandLine commandLine = parseCommandLine({"--verbose", "--from-start"});
  EXPECT_FALSE(commandLine.verbose);
  EXPECT_TRUE(commandLine.fromStart);
  EXPECT_EQ(parseCommandLine({"--poll", "5"}).pollInterval, 2.0);
}

TEST(CommandLine, SwitchesCountInAnyOrder) {
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"--poll", "5", "--from-start", "--verbose"},
                                             {"--verbose", "--from-start", "--poll", "5"},
                                             {"--from-start", "--poll", "5", "--verbose"}}) {
    const CommandLine commandLine = parsed(arguments);
    EXPECT_EQ(commandLine.pollInterval, 5.0);
    EXPECT_TRUE(commandLine.fromStart);
    EXPECT_TRUE(commandLine.verbose);
  }
}

TEST(CommandLine, EachSwitchSetsItsOwnSettingOnly) {
  const CommandLine fromStart = parsed({"--from-start"});
  EXPECT_TRUE(fromStart.fromStart);
  EXPECT_FALSE(fromStart.verbose);
  EXPECT_EQ(fromStart.pollInterval, 2.0);
  const CommandLine verbose = parsed({"--verbose"});
  EXPECT_TRUE(verbose.verbose);
  EXPECT_FALSE(verbose.fromStart);
  EXPECT_EQ(verbose.pollInterval, 2.0);
}

TEST(CommandLine, FromStartTwiceIsTheSameAsOnce) {
  EXPECT_TRUE(parsed({"--from-start", "--from-start"}).fromStart);
}

TEST(CommandLine, PollAsTheLastArgumentIsIgnored) {
  EXPECT_EQ(intervalOf({"--poll"}), 2.0);
  EXPECT_EQ(intervalOf({"--poll", "3", "--poll"}), 3.0);
}

TEST(CommandLine, PollDirectlyBeforeASwitchLeavesTheSwitchItsMeaning) {
  const CommandLine commandLine = parsed({"--poll", "--verbose"});
  EXPECT_EQ(commandLine.pollInterval, 2.0);
  EXPECT_TRUE(commandLine.verbose);
  EXPECT_TRUE(parsed({"--poll", "--from-start"}).fromStart);
  EXPECT_EQ(intervalOf({"--poll", "--poll", "3"}), 3.0);
}

TEST(CommandLine, PollTakesZeroAndLess) {
  EXPECT_EQ(intervalOf({"--poll", "0"}), 0.0);
  EXPECT_EQ(intervalOf({"--poll", "-1"}), -1.0);
}

TEST(CommandLine, PollTakesWhatIsNoFiniteNumber) {
  EXPECT_EQ(intervalOf({"--poll", "inf"}), HUGE_VAL);
  EXPECT_TRUE(std::isnan(intervalOf({"--poll", "nan"})));
}

TEST(CommandLine, LastAcceptedPollWins) {
  EXPECT_EQ(intervalOf({"--poll", "1", "--poll", "3"}), 3.0);
  EXPECT_EQ(intervalOf({"--poll", "1", "--poll", "3s"}), 1.0);
  EXPECT_EQ(intervalOf({"--poll", "1", "--poll", ""}), 1.0);
}

TEST(CommandLine, PollJoinedWithItsValueIsNotRecognised) {
  EXPECT_EQ(intervalOf({"--poll=5"}), 2.0);
  EXPECT_EQ(intervalOf({"--poll=5", "5"}), 2.0);
  EXPECT_EQ(intervalOf({"--poll 5"}), 2.0);
}

TEST(CommandLine, UnknownArgumentsArePassedOver) {
  const CommandLine commandLine =
      parsed({"-v", "x", "", "--help", "--verbose", "5", "--poll", "7", "--from-start=1"});
  EXPECT_TRUE(commandLine.verbose);
  EXPECT_EQ(commandLine.pollInterval, 7.0);
  EXPECT_FALSE(commandLine.fromStart);
}

TEST(CommandLine, SwitchesMatchExactly) {
  const CommandLine commandLine = parsed(
      {"--Verbose", "-verbose", "verbose", "--verbose ", " --verbose", "--verbos", "--verbosee",
       "--FROM-START", "--from_start", "--fromstart", "--Poll", "5", "-p", "5", "poll", "5"});
  EXPECT_FALSE(commandLine.verbose);
  EXPECT_FALSE(commandLine.fromStart);
  EXPECT_EQ(commandLine.pollInterval, 2.0);
}

TEST(SecondsFrom, TakesWhatIsANumberAsAWhole) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    const char* text;
    double seconds;
  } rows[] = {
      {"0.5", 0.5},
      {"10", 10},
      {"1e1", 10},
      {"1E+1", 10},
      {"25e-1", 2.5},
      {"+3", 3},
      {"-3.25", -3.25},
      {"-0", -0.0},
      {".5", 0.5},
      {"5.", 5},
      {"007", 7},
      {"0x10", 16},
      {"0X1.8p1", 3},
      {"-0x.8P-1", -0.25},
      {"0xA.", 10},
      {"inf", kInfinity},
      {"INF", kInfinity},
      {"+inf", kInfinity},
      {"-inf", -kInfinity},
      {"infinity", kInfinity},
      {"-Infinity", -kInfinity},
      {"1e999", kInfinity},
      {"-1e999", -kInfinity},
      {"1e-999", 0},
      {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
      {"1.7976931348623157e308", std::numeric_limits<double>::max()},
      {"0.1", 0.1},
  };
  for (const auto& row : rows) {
    const auto seconds = secondsFrom(row.text);
    ASSERT_TRUE(seconds.has_value()) << row.text;
    EXPECT_EQ(*seconds, row.seconds) << row.text;
    EXPECT_EQ(std::signbit(*seconds), std::signbit(row.seconds)) << row.text;
  }
}

TEST(SecondsFrom, TakesNotANumber) {
  for (const char* text : {"nan", "NaN", "NAN", "-nan", "+nan", "nan()", "nan(1)"}) {
    const auto seconds = secondsFrom(text);
    ASSERT_TRUE(seconds.has_value()) << text;
    EXPECT_TRUE(std::isnan(*seconds)) << text;
  }
}

TEST(SecondsFrom, RefusesTheEmptyText) { EXPECT_EQ(secondsFrom(""), std::nullopt); }

TEST(SecondsFrom, RefusesALeadingBlankOfEachKind) {
  for (const char blank : {'\0', '\t', '\n', '\v', '\f', '\r', ' '}) {
    EXPECT_EQ(secondsFrom(std::string(1, blank) + "5"), std::nullopt) << int{blank};
    EXPECT_EQ(secondsFrom(std::string(1, blank)), std::nullopt) << int{blank};
  }
  EXPECT_EQ(secondsFrom("\u00A05"), std::nullopt);
}

TEST(SecondsFrom, RefusesWhatIsLeftBehindTheNumber) {
  for (const char* text : {"5s",   "5ms",  "5 ", "5\n", "5\t", "1,5",    "1_000", "1.2.3",
                           "1e",   "1e+",  "0x", "0xg", "1 2", "inf ",   "infi",  "infinityx",
                           "nanx", "nan(", "5f", "0b1", "1p3", "5\u00A0"}) {
    EXPECT_EQ(secondsFrom(text), std::nullopt) << text;
  }
}

TEST(SecondsFrom, RefusesWhatIsNoNumber) {
  for (const char* text : {"x", "--verbose", "-", "+", ".", "e5", "--5", "+-5", "- 5", "p", "two",
                           "٥", "five", "(5)", "$5"}) {
    EXPECT_EQ(secondsFrom(text), std::nullopt) << text;
  }
}

TEST(SecondsFrom, RefusesANulAnywhere) {
  EXPECT_EQ(secondsFrom(std::string("\0", 1)), std::nullopt);
  EXPECT_EQ(secondsFrom(std::string("1\0", 2)), std::nullopt);
  EXPECT_EQ(secondsFrom(std::string("1\0002", 3)), std::nullopt);
  EXPECT_EQ(secondsFrom(std::string("\0001", 2)), std::nullopt);
}

}  // namespace
}  // namespace pelmar
