#include "config/pelmar_config.h"

#include <cstdlib>

#include "config/config_file.h"
#include "config/device_identity.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/locations.h"
#include "platform/text.h"

namespace pelmar::PelmarConfig {
namespace {

bool isDeviceEnrollmentSkipped() {
  const char* key = std::getenv("PELMAR_API_KEY");  // NOLINT(concurrency-mt-unsafe)
  return key != nullptr && key[0] != '\0';
}

std::optional<Profile> deviceProfile() {
  for (const char* process : {"Cowork", "Claude"}) {
    const auto resolved = DeviceIdentity::resolve(process);
    if (resolved && !resolved->uploadKey.empty() && !resolved->agentSlug.empty()) {
      return Profile{.name = "device",
                     .apiUrl = resolved->apiUrl,
                     .apiKey = resolved->uploadKey,
                     .agentSlug = resolved->agentSlug};
    }
  }
  return std::nullopt;
}

std::optional<std::string> valueAt(const ConfigSection& section, const char* key) {
  const auto found = section.find(key);
  if (found == section.end()) return std::nullopt;
  return found->second;
}

std::optional<Profile> profileOf(const std::string& name, const ConfigSection& section) {
  const auto apiUrl = valueAt(section, "api_url").value_or("");
  const auto apiKey = valueAt(section, "api_key").value_or("");
  if (apiUrl.empty() || apiKey.empty()) return std::nullopt;
  return Profile{.name = name,
                 .apiUrl = apiUrl,
                 .apiKey = apiKey,
                 .agentSlug = valueAt(section, "agent_slug"),
                 .tenant = valueAt(section, "tenant")};
}

}  // namespace

std::string configPath() { return locations::homeFolder() + "/.pelmar/config"; }

std::optional<Profile> resolveProfile() {
  const std::vector<std::string> preferred = {"claude-cowork", "claude-code", "tandem", "default"};
  auto profile = loadFirstProfile(preferred);
  if (profile && !profile->agentSlug.value_or("").empty()) return profile;
  if (auto managed = managedProfile()) return managed;
  return loadFirstProfile(preferred);  // asked again, not reused: the sources may have changed
}

std::optional<Profile> loadFirstProfile(const std::vector<std::string>& preferred) {
  if (!isDeviceEnrollmentSkipped()) {
    if (auto profile = deviceProfile()) return profile;
  }
  const auto text = readFile(configPath());
  if (!text || !isUtf8(*text)) return std::nullopt;
  const auto sections = parseConfig(*text);
  for (const auto& name : preferred) {
    const auto section = sections.find(name);
    if (section == sections.end()) continue;
    if (auto profile = profileOf(name, section->second)) return profile;
  }
  return std::nullopt;
}

std::optional<Profile> managedProfile() {
  const auto text = readFile(locations::setupFolder() + "/enroll-config.json");
  const auto enrollment = text ? parseJsonObject(*text) : std::nullopt;
  if (!enrollment) return std::nullopt;
  auto apiUrl = textAt(*enrollment, "api_url");
  auto apiKey = textAt(*enrollment, "api_key");
  if (apiUrl.empty() || apiKey.empty()) return std::nullopt;
  return Profile{.name = "managed", .apiUrl = std::move(apiUrl), .apiKey = std::move(apiKey)};
}

}  // namespace pelmar::PelmarConfig
