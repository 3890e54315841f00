#include "watcher/cursor_file.h"

#include <cerrno>
#include <set>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "platform/json.h"
#include "platform/locations.h"

namespace pelmar {
namespace {

// Before the text of each entry.
std::vector<std::string> keysOf(const CursorState& state) {
  std::vector<std::string> keys;
  keys.reserve(state.size());
  for (const auto& [path, entry] : state) {
    keys.push_back((keys.empty() ? "{\n" : ",\n") + compactJsonEscapingSlashes(path) + ": ");
  }
  return keys;
}

}  // namespace

std::string cursorPath() { return locations::homeFolder() + "/.pelmar/cowork-cursor.json"; }

LoadedCursor CursorFile::load() const {
  const auto text = readFile(path_);
  if (!text) {
    return {.problem = openError(path_) == ENOENT ? std::string() : unreadable(path_)};
  }
  LoadedCursor loaded;
  std::set<std::string> strangers;
  const bool isObject = forEachMember(*text, [&](const std::string& path, const json& values) {
    if (!values.is_object()) {
      strangers.insert(path);
      return;
    }
    strangers.erase(path);  // of duplicate keys the last one wins
    loaded.state.insert_or_assign(path, CursorEntry(values));
  });
  if (!isObject) return {.problem = path_ + " is no JSON object"};
  if (!strangers.empty()) return {.problem = path_ + " has an entry that is no object"};
  return loaded;
}

std::optional<std::string> CursorFile::save(const CursorState& state) const {
  createFolders(path_.substr(0, path_.rfind('/')));
  const auto keys = keysOf(state);
  std::vector<std::string_view> pieces;
  pieces.reserve(2 * keys.size() + 1);
  for (auto key = keys.begin(); const auto& [path, entry] : state) {
    pieces.emplace_back(*key++);
    pieces.emplace_back(entry.text());
  }
  pieces.emplace_back(keys.empty() ? "{\n}\n" : "\n}\n");
  return replaceFile(path_, path_ + ".tmp", pieces, FolderInPlace::isRemoved);
}

}  // namespace pelmar
