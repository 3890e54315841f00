#include "platform/directory_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/hidden.h"
#include "platform/uninterrupted.h"

namespace pelmar {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

EntryType typeOf(const dirent& entry, int folder) {
  switch (entry.d_type) {
    case DT_REG:
      return EntryType::regularFile;
    case DT_DIR:
      return EntryType::folder;
    case DT_UNKNOWN:
      break;  // some file systems leave the type to be asked for
    default:
      return EntryType::other;
  }
  struct stat status {};
  const auto ask = [&] { return ::fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW); };
  if (uninterrupted(ask) != 0) return EntryType::other;
  if (S_ISREG(status.st_mode)) return EntryType::regularFile;
  return S_ISDIR(status.st_mode) ? EntryType::folder : EntryType::other;
}

// Visits the entries of one folder and adds those to go into to `pending`. False with errno set
// when the folder cannot be read.
bool visitFolder(const std::string& folder, const std::function<Descend(const Entry&)>& visit,
                 std::vector<std::string>& pending) {
  const std::unique_ptr<DIR, CloseFolder> stream(
      uninterrupted([&] { return ::opendir(folder.c_str()); }));
  if (!stream) return false;
  const int descriptor = ::dirfd(stream.get());
  std::string path = folder + '/';
  const auto prefix = path.size();
  const auto next = [&] { return ::readdir(stream.get()); };  // NOLINT(concurrency-mt-unsafe)
  while (const dirent* entry = uninterrupted(next)) {
    if (entry->d_name[0] == '.' || hasHiddenFlag(descriptor, entry->d_name)) continue;
    path.replace(prefix, std::string::npos, entry->d_name);
    const EntryType type = typeOf(*entry, descriptor);
    const std::string_view name = std::string_view(path).substr(prefix);
    const Descend descend = visit({path, name, type, descriptor});
    if (type == EntryType::folder && descend == Descend::yes) pending.push_back(path);
  }
  return true;
}

}  // namespace

void walkFolder(const std::string& root, const std::function<Descend(const Entry&)>& visit,
                const std::function<void(const std::string&, int)>& onUnreadable) {
  std::vector<std::string> pending = {root};
  while (!pending.empty()) {
    const std::string folder = std::move(pending.back());
    pending.pop_back();
    if (!visitFolder(folder, visit, pending) && onUnreadable) onUnreadable(folder, errno);
  }
}

}  // namespace pelmar
