#include "platform/files.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>

#include "platform/descriptor.h"
#include "platform/fatal.h"
#include "platform/uninterrupted.h"

namespace pelmar {
namespace {

constexpr mode_t kOwnerOnlyFile = 0600;
constexpr mode_t kOwnerOnlyFolder = 0700;
constexpr std::size_t kReadPiece = 64 * 1024;
constexpr std::size_t kWrittenAtOnce = 64 * 1024;
constexpr std::size_t kMostOfNoRegularFile = 1024 * 1024;

std::string lastError() { return std::generic_category().message(errno); }

bool isRegularFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool flush(int descriptor) {
  return uninterrupted([descriptor] { return ::fsync(descriptor); }) == 0;
}

bool renamed(const std::string& from, const std::string& to) {
  return uninterrupted([&] { return ::rename(from.c_str(), to.c_str()); }) == 0;
}

// Small pieces as one write, large ones as they are: a file of many entries takes few writes and no
// copy of its own size.
bool writePieces(const Descriptor& file, std::span<const std::string_view> pieces) {
  std::string gathered;
  const auto writeGathered = [&] {
    const bool isWritten = writeAll(file, gathered);
    gathered.clear();
    return isWritten;
  };
  for (const std::string_view piece : pieces) {
    if (gathered.size() + piece.size() > kWrittenAtOnce && !writeGathered()) return false;
    if (piece.size() <= kWrittenAtOnce) {
      gathered += piece;
    } else if (!writeAll(file, piece)) {
      return false;
    }
  }
  return writeGathered();
}

bool writeFlushed(const std::string& path, std::span<const std::string_view> pieces) {
  // What stands there may be another's, a link or a FIFO: a new file, or none.
  uninterrupted([&] { return ::unlink(path.c_str()); });
  const Descriptor file(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, kOwnerOnlyFile);
  return file.valid() && writePieces(file, pieces) && flush(file.get());
}

// False with errno set when `temporary` could not take the place of `path`.
bool moveInto(const std::string& path, const std::string& temporary, FolderInPlace folderInPlace) {
  if (renamed(temporary, path)) return true;
  if (errno != EISDIR || folderInPlace == FolderInPlace::stands) return false;
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
  return renamed(temporary, path);
}

}  // namespace

std::optional<std::string> readFile(const std::string& path) {
  std::string content;
  if (!readFileAt(AT_FDCWD, path.c_str(), content)) return std::nullopt;
  return content;
}

bool readFileAt(int folder, const char* name, std::string& content) {
  content.clear();
  const Descriptor file(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file.valid()) return false;
  char piece[kReadPiece];
  for (;;) {
    const ssize_t count = uninterrupted([&] { return ::read(file.get(), piece, sizeof piece); });
    if (count < 0) {
      content.clear();
      return false;
    }
    content.append(piece, static_cast<std::size_t>(count));
    // A regular file reads short only at its end, so most files need no second read.
    if (static_cast<std::size_t>(count) < sizeof piece) return true;
    if (content.size() == kMostOfNoRegularFile && !isRegularFile(file.get())) return true;
  }
}

int openError(const std::string& path) {
  const Descriptor file(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  return file.valid() ? 0 : errno;
}

std::string unreadable(const std::string& path) {
  const int error = openError(path);
  if (error == ENOENT) return path + " does not exist";
  return path + " cannot be read" +
         (error == 0 ? "" : ": " + std::generic_category().message(error));
}

RangeRead readRange(const std::string& path, std::int64_t offset, std::int64_t length) {
  const Descriptor file(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file.valid()) return {};
  if (offset < 0) fatal("a stored offset is negative");
  if (::lseek(file.get(), offset, SEEK_SET) < 0) return {.isOpened = true};
  std::string bytes;
  try {
    bytes.resize(static_cast<std::size_t>(length));
  } catch (const std::exception&) {  // more than the memory there is
    return {.isOpened = true};
  }
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count = uninterrupted(
        [&] { return ::read(file.get(), bytes.data() + filled, bytes.size() - filled); });
    if (count < 0) return {.isOpened = true};
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return {.isOpened = true, .bytes = std::move(bytes)};
}

std::optional<std::int64_t> sizeOf(const std::string& path) {
  return sizeOfAt(AT_FDCWD, path.c_str());
}

std::optional<std::int64_t> sizeOfAt(int folder, const char* name) {
  struct stat status {};
  if (uninterrupted([&] { return ::fstatat(folder, name, &status, 0); }) != 0) return std::nullopt;
  return static_cast<std::int64_t>(status.st_size);
}

std::string fileIdentity(const std::string& path) {
  struct stat status {};
  std::error_code error;
  std::filesystem::file_time_type written;
  const auto ask = [&] {
    written = std::filesystem::last_write_time(path, error);
    return error ? -1 : ::stat(path.c_str(), &status);
  };
  if (uninterrupted(ask) != 0) return {};
  const auto modified =
      std::chrono::duration_cast<std::chrono::nanoseconds>(written.time_since_epoch());
  return std::to_string(status.st_ino) + ' ' + std::to_string(status.st_size) + ' ' +
         std::to_string(static_cast<std::int64_t>(modified.count()));
}

void createFolders(const std::string& folder) {
  for (std::size_t end = folder.find('/', 1);; end = folder.find('/', end + 1)) {
    const std::string part = folder.substr(0, end);
    uninterrupted([&] { return ::mkdir(part.c_str(), kOwnerOnlyFolder); });
    if (end == std::string::npos) return;
  }
}

std::optional<std::string> replaceFile(const std::string& path, const std::string& temporary,
                                       std::span<const std::string_view> pieces,
                                       FolderInPlace folderInPlace) {
  if (!writeFlushed(temporary, pieces) || !moveInto(path, temporary, folderInPlace)) {
    auto reason = lastError();
    uninterrupted([&] { return ::unlink(temporary.c_str()); });
    return reason;
  }
  const Descriptor folder(folderOf(path).c_str(), O_RDONLY);
  if (folder.valid()) flush(folder.get());
  return std::nullopt;
}

std::optional<std::string> replaceFile(const std::string& path, const std::string& temporary,
                                       std::string_view bytes) {
  return replaceFile(path, temporary, std::span(&bytes, 1));
}

bool appendLine(const std::string& path, std::string_view line) {
  const Descriptor file(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY);
  if (!file.valid()) return false;
  if (writeAll(file, line)) writeAll(file, "\n");
  return true;
}

}  // namespace pelmar
