#include <cstdlib>

#include "platform/fatal.h"
#include "platform/locations.h"

namespace pelmar::locations {
namespace {

// Read anew each time, so that every test has a folder of its own.
std::string below(const char* place) {
  const char* root = std::getenv("PELMAR_ROOT");  // NOLINT(concurrency-mt-unsafe)
  if (root == nullptr || root[0] != '/') fatal("PELMAR_ROOT must name an absolute folder");
  return std::string(root) + place;
}

}  // namespace

std::string homeFolder() { return below("/home"); }

std::string setupFolder() { return below("/private/tmp/dev.pelmar.setup"); }

std::string ioregTool() { return below("/usr/sbin/ioreg"); }

std::string psTool() { return below("/bin/ps"); }

}  // namespace pelmar::locations
