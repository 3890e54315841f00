// What tells the agent where it reports: the device enrollment, the two answers of the service to
// it, the managed enrollment and the configuration file, in this order with a line "----" between
// each two. An answer is the body of one with status 200.

#include <string>
#include <vector>

#include "config/pelmar_config.h"
#include "platform/files.h"
#include "platform/url.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/fuzz/scripted_service.h"
#include "tests/support/temp_root.h"

namespace pelmar::fuzz {
namespace {

using PelmarConfig::Resolution;

void checkProfile(const Profile& profile) {
  require(!profile.apiKey.empty(), "a profile has a key");
  if (profile.name == "device") {
    require(!profile.agentSlug.value_or("").empty(), "a device's profile has an agent");
    return;
  }
  require(!profile.apiUrl.empty(), "a profile has a URL");
  if (profile.name == "managed") {
    require(!profile.agentSlug, "a managed profile has no agent");
    return;
  }
  bool isPreferred = false;
  for (const auto& section : PelmarConfig::preferredSections()) {
    isPreferred |= section == profile.name;
  }
  require(isPreferred, "a profile has the name of its source");
}

void checkLookUps(const std::vector<SentRequest>& requests) {
  require(requests.size() <= 4, "the service is asked four times at most");
  for (const auto& request : requests) {
    require(isHttpUrl(request.url), "the service is asked at a URL");
    require(request.body.empty(), "a look-up has no body");
    for (const auto& [name, value] : request.headers) {
      require(!value.empty(), "an incomplete enrollment asks nobody");
    }
  }
}

void check(std::vector<std::string_view> parts) {
  static const test::TempRoot root;
  parts.resize(5);
  test::writeFile(root.setup() + "/device-identity.json", std::string(parts[0]));
  test::writeFile(root.setup() + "/enroll-config.json", std::string(parts[3]));
  test::writeFile(PelmarConfig::configPath(), std::string(parts[4]));
  bool isSecond = false;
  const ScriptedService service([&](const HttpRequest&) {
    isSecond = !isSecond;
    return answered(200, std::string(parts[isSecond ? 1 : 2]));
  });
  const auto profile = PelmarConfig::resolveProfile();
  if (profile) checkProfile(*profile);
  checkLookUps(service.requests());

  const Resolution explained = PelmarConfig::explainedProfile(PelmarConfig::Service::isNotAsked);
  require(!explained.profile || explained.profile->name != "device", "nobody is asked");
  for (const auto& over : explained.passedOver) {
    require(!over.reason.empty(), "what was passed over has a reason");
  }
  if (profile && profile->name != "device") {
    require(explained.profile == profile, "the rest does not hang on the service");
  }
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(pelmar::fuzz::partsOf(pelmar::fuzz::textOf(data, size)));
  return 0;
}
