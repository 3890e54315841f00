#pragma once

// Passes over the transcripts of a home folder, reported to the local service, where every session
// gets the run R.

#include <string>
#include <vector>

#include "tests/support/service_test.h"
#include "watcher/poll_pass.h"

namespace pelmar::test {

inline constexpr const char* kStart = "/api/v1/observe/runs/start/";
inline constexpr const char* kSteps = "/api/v1/observe/runs/R/steps/";

// A line and its line feed; one event, whose text is told by texts().
inline std::string userLine(const std::string& text) {
  return json({{"type", "user"},
               {"uuid", text},
               {"timestamp", "T"},
               {"session_id", "S"},
               {"message", {{"content", text}}}})
             .dump() +
         '\n';
}

class PollTest : public ServiceTest {
 protected:
  void SetUp() override {
    accept(kStart, R"({"run_id": "R", "workflow_id": "W"})");
    accept("/api/v1/observe/runs/R/");
  }

  // What is logged during one pass.
  std::vector<std::string> poll(bool verbose = false) {
    return logOf(
        [&] { pollOnce(state_, CursorFile(root_.cursor()), journal_, client(), "", verbose); });
  }

  // The texts of the user messages that were sent, in order.
  std::vector<std::string> texts() {
    std::vector<std::string> texts;
    for (const json& body : bodies(kSteps)) {
      texts.push_back(body.at("steps").at(0).at("output").at("text"));
    }
    return texts;
  }

  // The stored offset of a transcript, and the one in the cursor file; "none" without an entry.
  std::string offsetOf(const std::string& path) const {
    const auto entry = state_.find(path);
    return entry == state_.end() ? "none" : entry->second.values().at("offset").dump();
  }
  std::string savedOffsetOf(const std::string& path) const {
    const auto saved = CursorFile(root_.cursor()).load().state;
    const auto entry = saved.find(path);
    return entry == saved.end() ? "none" : entry->second.values().at("offset").dump();
  }

  void store(const std::string& path, const std::string& entry) {
    state_[path] = CursorEntry(json::parse(entry));
  }

  CursorState state_;
  Journal journal_{root_.cursor()};
};

}  // namespace pelmar::test
