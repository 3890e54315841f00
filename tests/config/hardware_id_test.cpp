#include "config/hardware_id.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/temp_root.h"

namespace pelmar::HardwareID {
namespace {

TEST(UuidIn, FindsTheValueInTheOutputOfTheTool) {
  EXPECT_EQ(uuidIn("+-o J314cAP  <class IOPlatformExpertDevice, id 0x100000227>\n"
                   "    {\n"
                   "      \"IOPlatformSerialNumber\" = \"C02XXXXXXXXX\"\n"
                   "      \"IOPlatformUUID\" = \"0A1B2C3D-4E5F-6789-abcd-EF0123456789\"\n"
                   "      \"model\" = <\"MacBookPro18,3\">\n"
                   "    }\n"),
            "0A1B2C3D-4E5F-6789-abcd-EF0123456789");
}

TEST(UuidIn, TakesTheFirstLineThatHasAll) {
  const struct {
    const char* output;
    const char* uuid;
  } kOutputs[] = {
      {"", ""},
      {"\n\n\n", ""},
      {"nothing of interest = \"x\"\n", ""},
      {"IOPlatformUUID = \"a\"", "a"},
      {"IOPlatformUUID = \"a\"\n", "a"},
      {"IOPlatformUUID = \"a\"\nIOPlatformUUID = \"b\"\n", "a"},
      {"\n\nIOPlatformUUID = \"a\"", "a"},
      {"IOPlatformUUID\nIOPlatformUUID = \"b\"", "b"},
      {"IOPlatformUUID = \"open\nIOPlatformUUID = \"b\"", "b"},
      {"IOPlatformUUID = a\nIOPlatformUUID = \"b\"", "b"},
      {"IOPlatformUUID=\"a\"", ""},
      {"IOPlatformUUID  =  \"a\"", ""},
      {"IOPlatformUUID\n = \"a\"", ""},
      {"ioplatformuuid = \"a\"", ""},
      {"IOPlatformUUID = \"\"", ""},
      {"IOPlatformUUID = \"\"\nIOPlatformUUID = \"b\"", ""},
      {"IOPlatformUUID = \" a b \" \"c\"", " a b "},
      {"x = \"first\" IOPlatformUUID = \"second\"", "first"},
      {"IOPlatformUUID \"q\" = \"a\"", "a"},
      {"IOPlatformUUID = \"\xC3\xA9\"", "\xC3\xA9"},
  };
  for (const auto& [output, uuid] : kOutputs) EXPECT_EQ(uuidIn(output), uuid) << output;
}

TEST(UuidIn, TakesNoOutputThatIsNotUtf8) {
  EXPECT_EQ(uuidIn("IOPlatformUUID = \"a\"\n\xFF"), "");
  EXPECT_EQ(uuidIn("\xC3\nIOPlatformUUID = \"a\"\n"), "");
}

// The answer holds for the life of the process: each test asks in a process of its own.
class IoPlatformUUID : public testing::Test {
 protected:
  IoPlatformUUID() { GTEST_FLAG_SET(death_test_style, "fast"); }

  // A tool that writes its arguments to a file, a line each run, and then does `rest`.
  void installTool(const std::string& rest, bool isExecutable = true) const {
    test::writeFile(root_.ioreg(), "#!/bin/sh\necho \"$*\" >> \"" + runs() + "\"\n" + rest + "\n");
    std::filesystem::permissions(root_.ioreg(), std::filesystem::perms(isExecutable ? 0700 : 0600));
  }
  std::string runs() const { return root_.path() + "/runs"; }

  [[noreturn]] static void printTwice() {
    const std::string first = ioPlatformUUID();
    const std::string second = ioPlatformUUID();
    std::fprintf(stderr, "<%s|%s>", first.c_str(), second.c_str());
    std::_Exit(0);
  }

  void expectTwice(const char* pattern) const {
    EXPECT_EXIT(printTwice(), testing::ExitedWithCode(0), pattern);
  }

  test::TempRoot root_;
};

constexpr auto* kOneRun = "-rd1 -c IOPlatformExpertDevice\n";

TEST_F(IoPlatformUUID, AsksTheToolOnce) {
  installTool("echo '  \"IOPlatformUUID\" = \"0A1B-c\"'");
  expectTwice("^<0A1B-c\\|0A1B-c>$");
  EXPECT_EQ(test::contentOf(runs()), kOneRun);
}

TEST_F(IoPlatformUUID, DoesNotLookAtTheExitStatusOrTheErrorsOfTheTool) {
  installTool("echo 'IOPlatformUUID = \"error\"' >&2; echo 'IOPlatformUUID = \"a\"'; exit 1");
  expectTwice("^<a\\|a>$");
}

TEST_F(IoPlatformUUID, IsEmptyForGoodWhenTheToolNamesNone) {
  installTool("echo nothing");
  expectTwice("^<\\|>$");
  EXPECT_EQ(test::contentOf(runs()), kOneRun);
}

TEST_F(IoPlatformUUID, IsEmptyForGoodWhenTheOutputIsNotUtf8) {
  installTool("printf 'IOPlatformUUID = \"a\"\\n\\377\\n'");
  expectTwice("^<\\|>$");
  EXPECT_EQ(test::contentOf(runs()), kOneRun);
}

TEST_F(IoPlatformUUID, IsEmptyForGoodWhenThereIsNoTool) {
  EXPECT_EXIT(
      {
        const std::string first = ioPlatformUUID();
        installTool("echo 'IOPlatformUUID = \"late\"'");
        std::fprintf(stderr, "<%s|%s>", first.c_str(), ioPlatformUUID().c_str());
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "^<\\|>$");
  EXPECT_FALSE(std::filesystem::exists(runs()));
}

TEST_F(IoPlatformUUID, IsEmptyWhenTheToolCannotBeRun) {
  installTool("echo 'IOPlatformUUID = \"a\"'", false);
  expectTwice("^<\\|>$");
  EXPECT_FALSE(std::filesystem::exists(runs()));
}

TEST_F(IoPlatformUUID, TakesMoreOutputThanAPipeHolds) {
  installTool("head -c 300000 /dev/zero | tr '\\0' x; echo; echo 'IOPlatformUUID = \"a\"'");
  expectTwice("^<a\\|a>$");
}

}  // namespace
}  // namespace pelmar::HardwareID
