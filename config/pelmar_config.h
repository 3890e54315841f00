#pragma once

// Decides which service, key and agent the watcher reports to. Nothing is cached: every call reads
// the files again and repeats the exchange with the service. Nothing is logged; what fails leaves
// its turn to the next source.

#include <optional>
#include <string>
#include <vector>

#include "config/profile.h"

namespace pelmar::PelmarConfig {

// The configuration file, ~/.pelmar/config. Nothing creates it.
std::string configPath();

// A source that did not serve, and why. `reason` holds no key.
struct PassedOver {
  std::string source;
  std::string reason;

  bool operator==(const PassedOver&) const = default;
};

struct Resolution {
  std::optional<Profile> profile{};
  std::vector<PassedOver> passedOver{};  // in the order in which the sources were tried
};

// The reason of an enrollment that would be asked for.
inline constexpr const char* kDeviceNotAsked = "not asked: the service decides whether it serves";

// Whether a device enrollment is resolved by asking the service, or passed over as not asked.
enum class Service { isAsked, isNotAsked };

// The sections of the configuration file that are looked at, in this order.
const std::vector<std::string>& preferredSections();

// As resolveProfile, and why each source before the one that serves did not.
Resolution explainedProfile(Service service);

// What loadFirstProfile finds in the `text` of a configuration file, and why not in each section
// before.
Resolution profileInConfig(const std::string& text, const std::vector<std::string>& preferred);

// The device enrollment of this machine or a section of the configuration file with an agent slug;
// else the managed enrollment; else a section without one; else none. Blocks for up to four
// exchanges of DeviceIdentity::resolve.
std::optional<Profile> resolveProfile();

// The device enrollment, unless PELMAR_API_KEY is set and not empty (its value is never used);
// else the first section named in `preferred` that holds an api_url and an api_key; else none.
// Blocks for up to two exchanges of DeviceIdentity::resolve.
std::optional<Profile> loadFirstProfile(const std::vector<std::string>& preferred);

// The enrollment that a setup tool left for this machine, or none.
std::optional<Profile> managedProfile();

}  // namespace pelmar::PelmarConfig
