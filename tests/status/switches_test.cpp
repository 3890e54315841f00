#include "status/switches.h"

#include <gtest/gtest.h>

namespace pelmar::status {
namespace {

TEST(Switches, AreAllTaken) {
  EXPECT_EQ(parseSwitches({}), Switches{});
  EXPECT_EQ(parseSwitches({"--json", "--check", "--follow"}),
            (Switches{.json = true, .check = true, .follow = true}));
  EXPECT_EQ(parseSwitches({"--config", "a file"}), Switches{.configFile = "a file"});
  EXPECT_EQ(parseSwitches({"--help"}), Switches{.help = true});
  EXPECT_EQ(parseSwitches({"--version"}), Switches{.version = true});
}

TEST(Switches, WhatIsNotKnownIsRefused) {
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"--jsn"},
                                             {"file"},
                                             {""},
                                             {"--config"},
                                             {"--config=x"},
                                             {"--config", "x", "--check"},
                                             {"--follow", "--config", "x"}}) {
    EXPECT_EQ(parseSwitches(arguments), std::nullopt) << ::testing::PrintToString(arguments);
  }
}

}  // namespace
}  // namespace pelmar::status
