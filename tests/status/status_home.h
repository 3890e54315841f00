#pragma once

// A home whose parts the status program looks at, written by the test.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/temp_root.h"

namespace pelmar::test {

class StatusHome : public TempRoot {
 public:
  // What the stand-in for ps prints from now on.
  void setProcesses(const std::string& listing) const;

  // One agent that has run for a minute, two seconds between its passes.
  void setAgentRunning() const;

  void setConfig(const std::string& text) const;
  void setGoodConfig() const;

  // Replaces the cursor by this entry for `path`.
  void setCursor(const std::string& path, const std::string& values) const;

  // Adds a line to the activity log, `minutesAgo` before now.
  void addRequest(int minutesAgo, const std::string& path, int status,
                  const std::string& error = "") const;

  // Every path below the root with its size, time of writing and permissions.
  std::vector<std::string> everything() const;
};

}  // namespace pelmar::test
