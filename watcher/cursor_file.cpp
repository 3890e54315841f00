#include "watcher/cursor_file.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

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
  const std::string temporary = path_ + ".tmp";
  const std::string text = textOf(state);
  createFolders(path_.substr(0, path_.rfind('/')));
  auto failure = replaceFile(path_, temporary, text);
  std::error_code ignored;
  if (failure && std::filesystem::is_directory(path_, ignored)) {
    std::filesystem::remove_all(path_, ignored);  // a rename does not replace a folder
    failure = replaceFile(path_, temporary, text);
  }
  return failure;
}

}  // namespace pelmar
