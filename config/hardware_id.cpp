#include "config/hardware_id.h"

#include <algorithm>

#include "platform/locations.h"
#include "platform/process.h"
#include "platform/text.h"

namespace pelmar::HardwareID {
namespace {

constexpr std::string_view kBeforeValue = "= \"";

std::string askTool() {
  const auto output = outputOf(locations::ioregTool(), {"-rd1", "-c", "IOPlatformExpertDevice"});
  return output ? uuidIn(*output) : std::string();
}

}  // namespace

std::string ioPlatformUUID() {
  static const std::string uuid = askTool();
  return uuid;
}

std::string uuidIn(std::string_view output) {
  if (!isUtf8(output)) return {};
  while (!output.empty()) {
    const std::string_view line = output.substr(0, output.find('\n'));
    output.remove_prefix(std::min(line.size() + 1, output.size()));
    if (line.find("IOPlatformUUID") == line.npos) continue;
    const auto before = line.find(kBeforeValue);
    if (before == line.npos) continue;
    const auto begin = before + kBeforeValue.size();
    const auto end = line.find('"', begin);
    if (end != line.npos) return std::string(line.substr(begin, end - begin));
  }
  return {};
}

}  // namespace pelmar::HardwareID
