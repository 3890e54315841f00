#include "service/request_checks.h"

#include <gtest/gtest.h>

namespace pelmar::service {
namespace {

using Check = std::optional<BodyFault> (*)(const json&);

struct Case {
  const char* name;
  Check check;
  const char* body;
  const char* wrongKey;  // null: the body is right
};

constexpr const char* kStep =
    R"({"hardware_uuid":"","steps":[{"step_name":"n","position":0,"output":{"kind":1,)"
    R"("timestamp":"","source":"","session_id":"","hardware_uuid":"","more":[]}}]})";

const Case kCases[] = {
    {"StartOfFourKeys", checkRunStart,
     R"({"agent_name":"","workflow_name":"","inputs":{},"metadata":{}})", nullptr},
    {"StartWithoutMetadata", checkRunStart, R"({"agent_name":"","workflow_name":"","inputs":{}})",
     "metadata"},
    {"StartWithEmptySession", checkRunStart,
     R"({"agent_name":"","workflow_name":"","inputs":{},"metadata":{},"session_id":""})",
     "session_id"},
    {"StartWithUnknownKey", checkRunStart,
     R"({"agent_name":"","workflow_name":"","inputs":{},"metadata":{},"secret":1})", ""},
    {"DailyWithEmptySlug", checkDailyRun, R"({"agent_slug":"","agent_type":"t"})", nullptr},
    {"DailyWithNumber", checkDailyRun, R"({"agent_slug":7,"agent_type":"t"})", "agent_slug"},
    {"Step", checkSteps, kStep, nullptr},
    {"StepsOfNone", checkSteps, R"({"hardware_uuid":"","steps":[]})", nullptr},
    {"StepsWithoutHardware", checkSteps, R"({"steps":[]})", "hardware_uuid"},
    {"StepOfText", checkSteps, R"({"hardware_uuid":"","steps":["x"]})", "steps[0]"},
    {"StepWithFraction", checkSteps,
     R"({"hardware_uuid":"","steps":[{"step_name":"n","position":1.5,"output":{}}]})",
     "steps[0].position"},
    {"StepWithBareOutput", checkSteps,
     R"({"hardware_uuid":"","steps":[{"step_name":"n","position":1,"output":{}}]})",
     "steps[0].output.kind"},
    {"Call", checkLlmCalls,
     R"({"hardware_uuid":"","calls":[{"model":"m","tokens_in":1,"tokens_out":2,"cost":0.0,)"
     R"("task":"cowork","prompt_preview":"","response_preview":""}]})",
     nullptr},
    {"CallWithTextualCost", checkLlmCalls,
     R"({"hardware_uuid":"","calls":[{"model":"m","tokens_in":1,"tokens_out":2,"cost":"0",)"
     R"("task":"cowork","prompt_preview":"","response_preview":""}]})",
     "calls[0].cost"},
    {"Completion", checkCompletion, R"({"status":"success","result":{},"error":"","steps":[]})",
     nullptr},
    {"CompletionWithNullError", checkCompletion,
     R"({"status":"success","result":{},"error":null,"steps":[]})", "error"},
    {"Heartbeat", checkHeartbeat, R"({"source":"watcher","machine_id":""})", nullptr},
    {"HeartbeatWithoutMachine", checkHeartbeat, R"({"source":"watcher"})", "machine_id"},
};

class BodyCheck : public testing::TestWithParam<Case> {};

TEST_P(BodyCheck, NamesTheWrongKeyOrNone) {
  const auto body = parseJson(GetParam().body);
  ASSERT_TRUE(body);
  const auto fault = GetParam().check(*body);
  ASSERT_EQ(fault.has_value(), GetParam().wrongKey != nullptr);
  if (fault) {
    EXPECT_EQ(fault->key, GetParam().wrongKey);
  }
}

INSTANTIATE_TEST_SUITE_P(Bodies, BodyCheck, testing::ValuesIn(kCases),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(BodyFault, NeverHoldsAKeyThatTheSenderMadeUp) {
  const auto fault = checkHeartbeat({{"source", "w"}, {"machine_id", "m"}, {"my words", 1}});
  ASSERT_TRUE(fault);
  EXPECT_EQ((fault->error + fault->key).find("my words"), std::string::npos);
}

}  // namespace
}  // namespace pelmar::service
