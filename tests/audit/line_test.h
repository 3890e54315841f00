#pragma once

// Lines of one transcript, processed against the local service.

#include <string>
#include <vector>

#include "audit/line_processing.h"
#include "tests/support/service_test.h"

namespace pelmar::test {

inline constexpr const char* kStart = "/api/v1/observe/runs/start/";
inline constexpr const char* kDaily = "/api/v1/observe/runs/daily/";
inline constexpr const char* kSteps = "/api/v1/observe/runs/R/steps/";
inline constexpr const char* kCalls = "/api/v1/observe/runs/R/llm-calls/";
inline constexpr const char* kTranscript = "/home/of/the/transcript.jsonl";

class LineTest : public ServiceTest {
 protected:
  bool process(const std::string& line, const std::string& agentSlug = "") {
    return processLine(json::parse(line), state_, client(), agentSlug, kTranscript);
  }

  // The step names of all steps sent to the run R, in order.
  std::vector<std::string> stepNames() {
    std::vector<std::string> names;
    for (const json& body : bodies(kSteps)) {
      names.push_back(body.at("steps").at(0).at("step_name"));
    }
    return names;
  }

  FileState state_{.values = json::parse(R"({"offset": 0, "run_id": "R", "workflow_id": "W",
                                             "step_position": 0})")};
};

// Three events: the answer and its two tool uses.
inline constexpr const char* kAnswerLine =
    R"({"type": "assistant", "uuid": "U", "session_id": "S", "message": {"content": [
        {"type": "tool_use", "id": "A", "name": "Read"},
        {"type": "tool_use", "id": "B", "name": "Edit"}]}})";

// One event each.
inline constexpr const char* kUserLine =
    R"({"type": "user", "uuid": "V", "session_id": "S", "message": {"content": "hello"}})";
inline constexpr const char* kInitLine =
    R"({"type": "system", "subtype": "init", "uuid": "I", "session_id": "S", "model": "m"})";

// None.
inline constexpr const char* kSilentLine = R"({"type": "user", "uuid": "N"})";

}  // namespace pelmar::test
