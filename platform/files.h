#pragma once

// Whole files: read, measured, replaced, appended to. Every operation opens and closes the
// file itself; nothing is held open. What is created is for its owner only (0600, 0700): the
// agent's files hold prompts.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace pelmar {

// The whole content of `path`, or none when it cannot be read. Never waits for a writer
// (a FIFO reads as empty) and takes at most 1 MiB from what is no regular file (/dev/zero).
std::optional<std::string> readFile(const std::string& path);

// The same for `name` in the open folder `folder`, which spares the way along the path, into
// `content`, whose memory serves again. False, and `content` is empty, when it cannot be read.
bool readFileAt(int folder, const char* name, std::string& content);

// Why what stands at `path` (a file or a folder) cannot be opened for reading, as errno has it; 0
// when it can.
int openError(const std::string& path);

// The same as words that name `path`: it does not exist, or cannot be read and why.
std::string unreadable(const std::string& path);

struct RangeRead {
  bool isOpened = false;               // false: nothing there, or no permission to read it
  std::optional<std::string> bytes{};  // none when seeking or reading failed, or memory is short
};

// Up to `length` bytes of `path` from `offset` on, fewer when the file ends before. An `offset`
// below zero ends the process.
RangeRead readRange(const std::string& path, std::int64_t offset, std::int64_t length);

// The size in bytes of what stands at `path` (links followed), or none when there is nothing.
std::optional<std::int64_t> sizeOf(const std::string& path);

// The same for `name` in the open folder `folder`.
std::optional<std::int64_t> sizeOfAt(int folder, const char* name);

// The inode, size and time of writing of the file at `path`: enough to tell it from what replaced
// it or what it replaced. Empty when there is none.
std::string fileIdentity(const std::string& path);

// Creates `folder` and what is missing above it. Failure shows in what is done there next.
void createFolders(const std::string& folder);

enum class FolderInPlace { stands, isRemoved };

// Replaces `path` by these `pieces`, one behind the other, as one step: they are written to
// `temporary` beside it, flushed to disk and renamed, and the folder flushed behind that; a crash
// leaves the old file or the new one. A folder at `path` is a failure, or is removed with its
// contents once the pieces are written. The reason on failure (what stood there still does), none
// on success.
std::optional<std::string> replaceFile(const std::string& path, const std::string& temporary,
                                       std::span<const std::string_view> pieces,
                                       FolderInPlace folderInPlace = FolderInPlace::stands);
std::optional<std::string> replaceFile(const std::string& path, const std::string& temporary,
                                       std::string_view bytes);

// Appends `line` and then, as a second write, its line feed to the file at `path`, which must
// exist. False when the file cannot be opened for writing; a failing write is not reported.
bool appendLine(const std::string& path, std::string_view line);

}  // namespace pelmar
