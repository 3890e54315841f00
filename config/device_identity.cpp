#include "config/device_identity.h"

#include <chrono>

#include "platform/files.h"
#include "platform/http.h"
#include "platform/json.h"
#include "platform/locations.h"
#include "platform/url.h"

namespace pelmar::DeviceIdentity {
namespace {

constexpr std::chrono::seconds kDeadline{12};

struct Identity {
  std::string deviceToken;
  std::string tenantSlug;
  std::string apiUrl;
};

std::optional<Identity> readIdentity() {
  const auto text = readFile(locations::setupFolder() + "/device-identity.json");
  const auto file = text ? parseJsonObject(*text) : std::nullopt;
  if (!file) return std::nullopt;
  Identity identity{.deviceToken = textAt(*file, "device_token"),
                    .tenantSlug = textAt(*file, "tenant_slug"),
                    .apiUrl = textAt(*file, "api_url")};
  if (identity.deviceToken.empty() || identity.tenantSlug.empty()) return std::nullopt;
  return identity;
}

}  // namespace

std::optional<Resolved> resolve(const std::string& process) {
  const auto identity = readIdentity();
  if (!identity) return std::nullopt;
  const auto url =
      urlBelow(identity->apiUrl, "api/pelmar/v1/endpoint/agent-config/", "process", process);
  if (!url) return std::nullopt;

  const auto exchange = HttpClient().send(
      {.url = *url,
       .headers = {{"X-Pel-Device", identity->deviceToken}, {"X-Pel-Tenant", identity->tenantSlug}},
       .deadline = kDeadline});
  if (exchange.error || exchange.status != 200 || !exchange.body) return std::nullopt;
  const auto answer = parseJsonObject(*exchange.body);
  if (!answer) return std::nullopt;
  auto uploadKey = textAt(*answer, "upload_api_key");
  if (uploadKey.empty()) return std::nullopt;
  const std::string* apiUrl = stringAt(*answer, "api_url");
  return Resolved{.apiUrl = apiUrl == nullptr ? identity->apiUrl : *apiUrl,
                  .uploadKey = std::move(uploadKey),
                  .agentSlug = textAt(*answer, "agent_slug"),
                  .agentType = textAt(*answer, "agent_type")};
}

}  // namespace pelmar::DeviceIdentity
