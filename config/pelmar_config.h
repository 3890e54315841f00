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
