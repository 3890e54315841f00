#include "status/config_findings.h"

#include <gmock/gmock.h>

#include "config/pelmar_config.h"

namespace pelmar::status {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Case {
  const char* name;
  const char* text;
  std::vector<ConfigFinding> findings;
};

class ConfigFindings : public ::testing::TestWithParam<Case> {};

TEST_P(ConfigFindings, AreInWordsWithTheLine) {
  EXPECT_THAT(configFindings(GetParam().text), ::testing::ElementsAreArray(GetParam().findings));
}

constexpr const char* kGood =
    "# mine\n[claude-cowork]\napi_url = https://a.example\napi_key = k\nagent_slug = s\n";

INSTANTIATE_TEST_SUITE_P(
    Texts, ConfigFindings,
    ::testing::Values(
        Case{"nothing", "", {}}, Case{"good", kGood, {}},
        Case{"crLf",
             "# a\n[claude-cowork]\r\napi_url = x\r\n",
             {{2,
               "the line ends with CR LF and so does not end at all for the agent: save the file "
               "with LF line ends"}}},
        Case{"notUtf8",
             "[default]\napi_key = \xFF\n",
             {{0, "the file is not UTF-8 and is passed over"}}},
        Case{"keysMissing",
             "\n[default]\nagent_slug = s\n",
             {{2, "the section [default] lacks \"api_url\" and is passed over"},
              {2, "the section [default] lacks \"api_key\" and is passed over"}}},
        Case{"emptyKey",
             "[tandem]\napi_url = http://a\napi_key =\nagent_slug = s\n",
             {{1, "the section [tandem] lacks \"api_key\" and is passed over"}}},
        Case{"noSlug",
             "[default]\napi_url = http://a\napi_key = k\n",
             {{1,
               "the section [default] has no \"agent_slug\": no daily run, no heartbeat, and a "
               "managed enrollment comes before it"}}},
        Case{"quotes",
             "[default]\napi_url = \"http://a\"\napi_key = 'k'\nagent_slug = s\n",
             {{2, "the double quotes around the value of \"api_url\" are dropped", true},
              {3, "the single quotes are part of the value of \"api_key\""}}},
        Case{"otherSection",
             "[mine]\napi_url = http://a\n",
             {{1,
               "the section [mine] is not used: the names are claude-cowork, claude-code, tandem "
               "and default",
               true}}},
        Case{"keyNames",
             "[default]\napi_url = http://a\nAPI_KEY = k\napi_key = k\nagent_slug = s\nnote = n\n",
             {{3, "the key \"API_KEY\" is not read: write it as \"api_key\""},
              {6, "the key \"note\" is not read", true}}},
        Case{"strayLines",
             "api_url = http://a\n[default]\napi_url = http://a\napi_key = k\nagent_slug = s\nx\n",
             {{1, "the key \"api_url\" stands above the first section and is ignored"},
              {6, "the line has no \"=\" and is ignored"}}},
        Case{"comment",
             "[default]\napi_url = http://a\napi_key = k # mine\nagent_slug = s\n",
             {{3,
               "what follows # is part of the value of \"api_key\": a comment needs a line of its "
               "own"}}},
        Case{"url",
             "[default]\napi_url = a.example\napi_key = k\nagent_slug = s\n",
             {{2, "the value of \"api_url\" is no http or https URL"}}},
        Case{"repeated",
             "[default]\napi_url = http://a\n[default]\napi_key = k\nagent_slug = s\n",
             {{3,
               "the section [default] is repeated: what stands behind its earlier header is "
               "dropped"},
              {3, "the section [default] lacks \"api_url\" and is passed over"}}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ProfileInConfig, SaysWhyEachEarlierSectionWasPassedOver) {
  const auto resolution = PelmarConfig::profileInConfig(
      "[claude-cowork]\napi_key = k\n[claude-code]\napi_url = u\n[default]\napi_url = u\n"
      "api_key = k\n",
      PelmarConfig::preferredSections());
  ASSERT_TRUE(resolution.profile);
  EXPECT_EQ(resolution.profile->name, "default");
  using PelmarConfig::PassedOver;
  EXPECT_THAT(resolution.passedOver, ElementsAre(PassedOver{"claude-cowork", "it has no api_url"},
                                                 PassedOver{"claude-code", "it has no api_key"},
                                                 PassedOver{"tandem", "there is no such section"}));
}

TEST(ProfileInConfig, FirstSectionThatServesLeavesNothingToExplain) {
  const auto resolution = PelmarConfig::profileInConfig(kGood, PelmarConfig::preferredSections());
  ASSERT_TRUE(resolution.profile);
  EXPECT_THAT(resolution.passedOver, IsEmpty());
}

}  // namespace
}  // namespace pelmar::status
