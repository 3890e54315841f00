#pragma once

// Everything that the status program knows, and what follows from it.

#include <optional>
#include <string>
#include <vector>

#include "config/pelmar_config.h"
#include "status/activity.h"
#include "status/agent_process.h"
#include "status/config_findings.h"
#include "status/sessions.h"

namespace pelmar::status {

// Also the exit status.
enum class Verdict { healthy = 0, notReporting = 1, problems = 2 };

struct Finding {
  Verdict verdict;  // what it alone would make of the whole; healthy for a note
  std::string text;
};

struct Report {
  TimePoint now;
  std::optional<std::vector<RunningAgent>> agents{};  // none: ps could not be asked
  PelmarConfig::Resolution resolution{};
  bool isDeviceNotAsked = false;  // an enrollment stands before `resolution`, if the service serves
  std::string configPath{};
  std::vector<ConfigFinding> configFindings{};
  Activity activity{};
  Sessions sessions{};
  std::optional<std::string> check{};  // the service's word on the key, when it was asked
  bool isKeyAccepted = false;
  std::vector<Finding> findings{};

  Verdict verdict() const;
};

// Looks at the home of the user, and with `asksService` resolves a device enrollment and sends a
// heartbeat.
Report takeReport(bool asksService);

// Looks at a configuration file only.
Report reportOnConfig(const std::string& path);

// The last four characters of a long key behind stars, and stars alone for a short one.
std::string masked(const std::string& key);

// `url` without its user and password.
std::string withoutPassword(const std::string& url);

}  // namespace pelmar::status
