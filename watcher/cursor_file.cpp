#include "watcher/cursor_file.h"

#include <cerrno>

#include "platform/files.h"
#include "platform/json.h"
#include "platform/locations.h"

namespace pelmar {
namespace {

std::string textOf(const CursorState& state) {
  std::string text = "{";
  for (const auto& [path, file] : state) {
    text += text.size() == 1 ? "\n" : ",\n";
    text += compactJsonEscapingSlashes(path) + ": " + indentedJsonEscapingSlashes(file.values);
  }
  return text + "\n}\n";
}

}  // namespace

std::string cursorPath() { return locations::homeFolder() + "/.pelmar/cowork-cursor.json"; }

LoadedCursor CursorFile::load() const {
  const auto text = readFile(path_);
  if (!text) {
    return {.problem = openError(path_) == ENOENT ? std::string() : unreadable(path_)};
  }
  auto stored = parseJsonObject(*text);
  if (!stored) return {.problem = path_ + " is no JSON object"};
  LoadedCursor loaded;
  for (auto& [path, values] : stored->items()) {
    if (!values.is_object()) return {.problem = path_ + " has an entry that is no object"};
    loaded.state.emplace(path, FileState{.values = std::move(values)});
  }
  return loaded;
}

std::optional<std::string> CursorFile::save(const CursorState& state) const {
  createFolders(path_.substr(0, path_.rfind('/')));
  return replaceFile(path_, path_ + ".tmp", textOf(state), FolderInPlace::isRemoved);
}

}  // namespace pelmar
