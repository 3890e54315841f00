#pragma once

// A walk over everything below a folder, hidden entries and their contents left out (names that
// begin with a dot; on macOS also what carries the hidden flag). Links to folders are not
// followed. Folders that cannot be read are passed over.

#include <functional>
#include <string>
#include <string_view>

namespace pelmar {

enum class EntryType { regularFile, folder, other };

struct Entry {
  const std::string& path;
  std::string_view name;  // the last component of `path`, with a NUL behind it
  EntryType type;         // of the entry itself: a link is `other`
  int folder;             // the descriptor of the folder that it is in, open during the visit
};

// Whether to go into the folder that was visited; without meaning for other entries.
enum class Descend { yes, no };

// Calls `visit` for every entry below `root`, in the order of the file system. Holds one folder
// open at a time, whatever the depth. `root` itself may be a link and is not visited.
// `onUnreadable`, where given, is told each folder that cannot be read, with the errno.
void walkFolder(const std::string& root, const std::function<Descend(const Entry&)>& visit,
                const std::function<void(const std::string&, int)>& onUnreadable = {});

}  // namespace pelmar
