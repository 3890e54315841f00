#pragma once

// The keys of the events that were recorded from one transcript: a list in the per-file state,
// oldest first, and an index beside it, so that a look-up does not grow with the list.

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <unordered_set>

namespace pelmar {

class SeenKeys {
 public:
  SeenKeys() = default;
  SeenKeys(SeenKeys&&) = default;
  SeenKeys& operator=(SeenKeys&&) = default;
  // A copy's index would point into the other's list.
  SeenKeys(const SeenKeys&) = delete;
  SeenKeys& operator=(const SeenKeys&) = delete;

  // Indexes "seen_keys" of `fileState`, once; what is no array of strings is replaced by an empty
  // one. `fileState` must outlive this object, may be moved, and only this object changes its list.
  void attach(nlohmann::json& fileState);

  bool contains(const std::string& key) const { return index_.contains(key); }

  void add(nlohmann::json& fileState, std::string key);

  // Above 10,000 keys, drops all but the newest 5,000.
  void trim(nlohmann::json& fileState);

 private:
  void indexAll(const nlohmann::json& list);

  bool isAttached_ = false;
  std::unordered_set<std::string_view> index_;  // into the strings of the list
};

}  // namespace pelmar
