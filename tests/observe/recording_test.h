#pragma once

// Events recorded into the run R of one transcript.

#include <string>

#include "observe/event_recording.h"
#include "tests/support/service_test.h"

namespace pelmar::test {

inline constexpr const char* kSteps = "/api/v1/observe/runs/R/steps/";
inline constexpr const char* kCalls = "/api/v1/observe/runs/R/llm-calls/";
inline constexpr const char* kComplete = "/api/v1/observe/runs/R/complete/";

inline RunEvent eventOf(const std::string& kind, const std::string& payload = "{}") {
  return {.stepName = "cowork:" + kind,
          .kind = kind,
          .sessionID = "S",
          .timestamp = "T",
          .payload = json::parse(payload)};
}

class RecordingTest : public ServiceTest {
 protected:
  bool record(const RunEvent& event) { return appendEventToRun(event, "R", state_, client()); }

  json state_ = json::parse(R"({"run_id": "R", "step_position": 0})");
};

// `piece`, `count` times.
inline std::string times(std::size_t count, const std::string& piece) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

}  // namespace pelmar::test
