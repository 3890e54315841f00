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

struct IdentityRead {
  std::optional<Identity> identity{};
  std::string reason{};
};

IdentityRead readIdentity() {
  const std::string path = locations::setupFolder() + "/device-identity.json";
  const auto text = readFile(path);
  if (!text) return {.reason = unreadable(path)};
  const auto file = parseJsonObject(*text);
  if (!file) return {.reason = path + " is no JSON object"};
  Identity identity{.deviceToken = textAt(*file, "device_token"),
                    .tenantSlug = textAt(*file, "tenant_slug"),
                    .apiUrl = textAt(*file, "api_url")};
  if (identity.deviceToken.empty()) return {.reason = path + " has no device_token"};
  if (identity.tenantSlug.empty()) return {.reason = path + " has no tenant_slug"};
  return {.identity = std::move(identity)};
}

std::optional<std::string> urlFor(const Identity& identity, const std::string& process) {
  return urlBelow(identity.apiUrl, "api/pelmar/v1/endpoint/agent-config/", "process", process);
}

constexpr const char* kBadUrl = "the api_url of the device identity is no http or https URL";

std::string failureOf(const HttpExchange& exchange) {
  if (exchange.isTimeout()) return "the service did not answer in time";
  if (exchange.error) return "the service cannot be reached: " + *exchange.error;
  return "the service answered with status " + std::to_string(exchange.status);
}

}  // namespace

Attempt tryResolve(const std::string& process) {
  const auto [identity, reason] = readIdentity();
  if (!identity) return {.reason = reason};
  const auto url = urlFor(*identity, process);
  if (!url) return {.reason = kBadUrl};

  const auto exchange = HttpClient().send(
      {.url = *url,
       .headers = {{"X-Pel-Device", identity->deviceToken}, {"X-Pel-Tenant", identity->tenantSlug}},
       .deadline = kDeadline});
  if (exchange.error || exchange.status != 200 || !exchange.body) {
    return {.reason = failureOf(exchange)};
  }
  const auto answer = parseJsonObject(*exchange.body);
  if (!answer) return {.reason = "the service's answer is no JSON object"};
  auto uploadKey = textAt(*answer, "upload_api_key");
  if (uploadKey.empty()) return {.reason = "the service's answer has no upload key"};
  const std::string* apiUrl = stringAt(*answer, "api_url");
  return {.resolved = Resolved{.apiUrl = apiUrl == nullptr ? identity->apiUrl : *apiUrl,
                               .uploadKey = std::move(uploadKey),
                               .agentSlug = textAt(*answer, "agent_slug"),
                               .agentType = textAt(*answer, "agent_type")}};
}

std::optional<std::string> identityProblem() {
  const auto [identity, reason] = readIdentity();
  if (!identity) return reason;
  if (!urlFor(*identity, "Cowork")) return kBadUrl;
  return std::nullopt;
}

std::optional<Resolved> resolve(const std::string& process) { return tryResolve(process).resolved; }

}  // namespace pelmar::DeviceIdentity
