#include "service/step_facts.h"

#include <gtest/gtest.h>

namespace pelmar::service {
namespace {

TEST(StepFacts, PreviewShowsTheFirstTextOrWhatIsCalled) {
  const struct {
    const char* output;
    const char* preview;
  } cases[] = {
      {R"({})", ""},
      {R"({"text": "said", "content": "c"})", "said"},
      {R"({"text": "", "content": "read"})", "read"},
      {R"({"tool_input": {"command": "ls"}})", "ls"},
      {R"({"tool_input": {"limit": 5}})", R"({"limit":5})"},
      {R"({"tool_input": {"a": "x", "b": "y"}})", R"({"a":"x","b":"y"})"},
      {R"({"tool_input": {}})", ""},
      {R"({"text": "", "tool_uses": [{"tool_name": "Bash"}, {"tool_name": "Read"}]})",
       "calls Bash, Read"},
      {R"({"text": "said", "tool_uses": [{"tool_name": "Bash"}]})", "said"},
      {R"({"tool_uses": []})", ""},
      {R"({"tool_uses": "odd"})", ""},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(factsOf("assistant", *parseJson(one.output)).preview, one.preview) << one.output;
  }
}

TEST(StepFacts, OnlyAFlagThatIsTrueOrAResultOfAnErrorIsAFailure) {
  const struct {
    const char* kind;
    const char* output;
    bool isError;
  } cases[] = {{"tool_result", R"({"is_error": true})", true},
               {"tool_result", R"({"is_error": false})", false},
               {"tool_result", R"({"is_error": 1})", false},
               {"tool_result", R"({})", false},
               {"result:error_max_turns", R"({})", true},
               {"result:success", R"({})", false}};
  for (const auto& one : cases) {
    EXPECT_EQ(factsOf(one.kind, *parseJson(one.output)).isError, one.isError) << one.output;
  }
}

}  // namespace
}  // namespace pelmar::service
