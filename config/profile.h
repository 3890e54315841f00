#pragma once

#include <optional>
#include <string>

namespace pelmar {

// Where and as whom the agent reports. Fixed for the life of the process.
struct Profile {
  std::string name;    // the config file's section, "device" or "managed"
  std::string apiUrl;  // as written in its source; not validated
  std::string apiKey;  // never empty; never logged
  std::optional<std::string> agentSlug{};
  std::optional<std::string> tenant{};

  bool operator==(const Profile&) const = default;
};

}  // namespace pelmar
