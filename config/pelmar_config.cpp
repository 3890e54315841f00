#include "config/pelmar_config.h"

#include <cstdlib>
#include <iterator>
#include <utility>

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

constexpr const char* kDevice = "device";
constexpr const char* kManaged = "managed";
constexpr const char* kConfigFile = "config file";

Resolution deviceProfile(Service service) {
  Resolution resolution;
  const auto passOver = [&resolution](const std::string& reason) {
    const PassedOver over{.source = kDevice, .reason = reason};
    auto& all = resolution.passedOver;
    if (all.empty() || all.back() != over) all.push_back(over);
  };
  if (isDeviceEnrollmentSkipped()) {
    passOver("skipped, because PELMAR_API_KEY is set");
    return resolution;
  }
  if (service == Service::isNotAsked) {
    passOver(DeviceIdentity::identityProblem().value_or(kDeviceNotAsked));
    return resolution;
  }
  for (const char* process : {"Cowork", "Claude"}) {
    const auto [resolved, reason] = DeviceIdentity::tryResolve(process);
    if (!resolved) {
      passOver(reason);
    } else if (resolved->agentSlug.empty()) {
      passOver("the service's answer has no agent slug");
    } else {
      resolution.profile = Profile{.name = kDevice,
                                   .apiUrl = resolved->apiUrl,
                                   .apiKey = resolved->uploadKey,
                                   .agentSlug = resolved->agentSlug};
      return resolution;
    }
  }
  return resolution;
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

// `resolution` with what was passed over `before` it.
Resolution behind(std::vector<PassedOver> before, Resolution resolution) {
  auto& all = resolution.passedOver;
  all.insert(all.begin(), std::make_move_iterator(before.begin()),
             std::make_move_iterator(before.end()));
  return resolution;
}

Resolution configProfile(const std::vector<std::string>& preferred) {
  const auto text = readFile(configPath());
  if (text) return profileInConfig(*text, preferred);
  return {.passedOver = {{.source = kConfigFile, .reason = unreadable(configPath())}}};
}

Resolution firstProfile(const std::vector<std::string>& preferred, Service service) {
  Resolution device = deviceProfile(service);
  if (device.profile) return device;
  return behind(std::move(device.passedOver), configProfile(preferred));
}

Resolution managed() {
  const auto passedOver = [](const std::string& reason) {
    return Resolution{.passedOver = {{.source = kManaged, .reason = reason}}};
  };
  const std::string path = locations::setupFolder() + "/enroll-config.json";
  const auto text = readFile(path);
  if (!text) return passedOver(unreadable(path));
  const auto enrollment = parseJsonObject(*text);
  if (!enrollment) return passedOver(path + " is no JSON object");
  auto apiUrl = textAt(*enrollment, "api_url");
  auto apiKey = textAt(*enrollment, "api_key");
  if (apiUrl.empty()) return passedOver(path + " has no api_url");
  if (apiKey.empty()) return passedOver(path + " has no api_key");
  return {.profile =
              Profile{.name = kManaged, .apiUrl = std::move(apiUrl), .apiKey = std::move(apiKey)}};
}

}  // namespace

std::string configPath() { return locations::homeFolder() + "/.pelmar/config"; }

const std::vector<std::string>& preferredSections() {
  static const std::vector<std::string> names = {"claude-cowork", "claude-code", "tandem",
                                                 "default"};
  return names;
}

Resolution explainedProfile(Service service) {
  Resolution first = firstProfile(preferredSections(), service);
  if (first.profile && !first.profile->agentSlug.value_or("").empty()) return first;
  if (first.profile) {
    first.passedOver.push_back(
        {.source = first.profile->name,
         .reason = "it has no agent_slug, so a managed enrollment comes before it"});
  }
  Resolution enrollment = managed();
  if (enrollment.profile) return behind(std::move(first.passedOver), std::move(enrollment));
  // Asked again, not reused: the sources may have changed.
  return {.profile = firstProfile(preferredSections(), service).profile,
          .passedOver = behind(std::move(first.passedOver), std::move(enrollment)).passedOver};
}

Resolution profileInConfig(const std::string& text, const std::vector<std::string>& preferred) {
  if (!isUtf8(text)) return {.passedOver = {{.source = kConfigFile, .reason = "it is not UTF-8"}}};
  const auto sections = parseConfig(text);
  Resolution resolution;
  for (const auto& name : preferred) {
    const auto section = sections.find(name);
    const bool isThere = section != sections.end();
    resolution.profile = isThere ? profileOf(name, section->second) : std::nullopt;
    if (resolution.profile) return resolution;
    const char* missing = !isThere ? "there is no such section"
                          : valueAt(section->second, "api_url").value_or("").empty()
                              ? "it has no api_url"
                              : "it has no api_key";
    resolution.passedOver.push_back({.source = name, .reason = missing});
  }
  return resolution;
}

std::optional<Profile> resolveProfile() { return explainedProfile(Service::isAsked).profile; }

std::optional<Profile> loadFirstProfile(const std::vector<std::string>& preferred) {
  return firstProfile(preferred, Service::isAsked).profile;
}

std::optional<Profile> managedProfile() { return managed().profile; }

}  // namespace pelmar::PelmarConfig
