#include "tests/faults/preloaded.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace pelmar::test {
namespace {

std::string* entryOf(int descriptor) {
  static auto& names = *new std::array<std::string, 1024>;  // outlives every other object
  const auto index = static_cast<std::size_t>(descriptor);
  return descriptor >= 0 && index < names.size() ? &names[index] : nullptr;
}

}  // namespace

bool isWatched(std::string_view path) {
  const char* root = std::getenv("PELMAR_ROOT");  // NOLINT(concurrency-mt-unsafe)
  return root != nullptr && path.starts_with(root);
}

const std::string* nameOf(int descriptor) {
  const std::string* entry = entryOf(descriptor);
  return entry == nullptr || entry->empty() ? nullptr : entry;
}

void setName(int descriptor, std::string name) {
  if (std::string* entry = entryOf(descriptor)) *entry = std::move(name);
}

void clearName(int descriptor) { setName(descriptor, {}); }

}  // namespace pelmar::test
