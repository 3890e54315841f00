#include "audit/seen_keys.h"

#include <algorithm>

#include "platform/json.h"

namespace pelmar {
namespace {

constexpr const char* kSeenKeys = "seen_keys";
constexpr std::size_t kMostKeys = 10000;
constexpr std::size_t kKeptKeys = 5000;

bool isArrayOfStrings(const json& value) {
  return value.is_array() && std::all_of(value.begin(), value.end(),
                                         [](const json& element) { return element.is_string(); });
}

}  // namespace

void SeenKeys::attach(json& fileState) {
  if (isAttached_) return;
  isAttached_ = true;
  json& list = fileState[kSeenKeys];
  if (!isArrayOfStrings(list)) list = json::array();
  indexAll(list);
}

void SeenKeys::add(json& fileState, std::string key) {
  json& list = fileState[kSeenKeys];
  list.push_back(std::move(key));
  index_.insert(list.back().get_ref<const std::string&>());
}

void SeenKeys::trim(json& fileState) {
  json& list = fileState[kSeenKeys];
  if (list.size() <= kMostKeys) return;
  list.erase(list.begin(), list.end() - static_cast<json::difference_type>(kKeptKeys));
  indexAll(list);
}

void SeenKeys::indexAll(const json& list) {
  index_.clear();
  for (const json& key : list) index_.insert(key.get_ref<const std::string&>());
}

}  // namespace pelmar
