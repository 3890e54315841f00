#pragma once

// A home folder with one watched transcript, and passes of the agent over it.

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/fuzz/scripted_service.h"
#include "tests/support/temp_root.h"
#include "watcher/poll_pass.h"

namespace pelmar::fuzz {

inline constexpr const char* kServiceUrl = "http://service";

class AgentHome {
 public:
  AgentHome();

  const std::string& transcript() const { return transcript_; }
  std::string cursor() const { return root_.cursor(); }

  void writeTranscript(std::string_view content);
  void appendToTranscript(std::string_view content);

  // Makes no pauses between its attempts.
  static ObserveClient client();

  // One pass.
  void pass(CursorState& state, const std::string& agentSlug) const;

  // The transcript's offset in `state`, which knows it.
  std::int64_t offsetIn(const CursorState& state) const;

 private:
  test::TempRoot root_{};
  std::string transcript_;
};

// The home of this process.
AgentHome& agentHome();

}  // namespace pelmar::fuzz
