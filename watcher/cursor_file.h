#pragma once

// The watcher's memory across restarts: how far every transcript has been read and which run its
// events belong to. Stores what it is given and never looks inside a transcript's entry. Not
// locked: one agent owns one file.

#include <map>
#include <optional>
#include <string>

#include "watcher/cursor_entry.h"

namespace pelmar {

// By the absolute path of the transcript. Entries are added, never removed.
using CursorState = std::map<std::string, CursorEntry>;

struct LoadedCursor {
  CursorState state{};
  std::string problem{};  // why the state is empty; itself empty otherwise, and without a file
};

// Where the watcher keeps it: ~/.pelmar/cowork-cursor.json.
std::string cursorPath();

class CursorFile {
 public:
  explicit CursorFile(std::string path) : path_(std::move(path)) {}

  // The stored state; empty when the file is missing, unreadable or of another shape, be it in one
  // entry. Blocks on one read of the whole file.
  LoadedCursor load() const;

  // Replaces the file, and creates its folder, as one step: a crash leaves the old file or the new
  // one. The reason on failure, none on success. Blocks until the disk has the data.
  std::optional<std::string> save(const CursorState& state) const;

 private:
  std::string path_;
};

}  // namespace pelmar
