#include "watcher/cursor_file.h"

#include <algorithm>

#include "platform/files.h"
#include "platform/json.h"

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

CursorState CursorFile::load() const {
  const auto text = readFile(path_);
  auto stored = text ? parseJsonObject(*text) : std::nullopt;
  CursorState state;
  if (!stored || !std::all_of(stored->begin(), stored->end(),
                              [](const json& entry) { return entry.is_object(); })) {
    return state;
  }
  for (auto& [path, values] : stored->items()) {
    state.emplace(path, FileState{.values = std::move(values)});
  }
  return state;
}

std::optional<std::string> CursorFile::save(const CursorState& state) const {
  createFolders(path_.substr(0, path_.rfind('/')));
  return replaceFile(path_, path_ + ".tmp", textOf(state), FolderInPlace::isRemoved);
}

}  // namespace pelmar
