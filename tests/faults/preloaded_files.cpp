// The calls on files below PELMAR_ROOT that can be made to fail, and are recorded.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/faults/faults.h"
#include "tests/faults/next.h"
#include "tests/faults/preloaded.h"
#include "tests/faults/recording.h"

using namespace pelmar::test;  // NOLINT: the functions below are the system's, in no namespace

namespace {

// Whether the call fails; errno is set.
bool failsAt(const char* call, const std::string& path) {
  if (!isWatched(path)) return false;
  const auto fault = lockstep().faultOf(call, path);
  if (fault) errno = *fault;
  return fault.has_value();
}

bool failsAt(const char* call, int descriptor) {
  const std::string* path = nameOf(descriptor);
  return path != nullptr && failsAt(call, *path);
}

// As failsAt, but where the plan says so `length` is halved instead, and the call goes ahead.
bool failsAt(const char* call, int descriptor, std::size_t& length) {
  if (!failsAt(call, descriptor)) return false;
  if (errno != kHalf) return true;
  length = (length + 1) / 2;
  return false;
}

const char* kindOfOpen(int flags) {
  return (flags & O_ACCMODE) == O_RDONLY && (flags & O_CREAT) == 0 ? "open_read" : "open_write";
}

int opened(int descriptor, const std::string& path, int flags) {
  if (descriptor >= 0 && isWatched(path)) {
    setName(descriptor, path);
    const char* how = (flags & O_EXCL) != 0 ? "new" : (flags & O_TRUNC) != 0 ? "emptied" : "open";
    record({how, std::to_string(descriptor), path});
  }
  return descriptor;
}

// Where `path` leads from the open folder `folder`.
std::string pathFrom(int folder, const char* path) {
  const std::string* name = path[0] == '/' ? nullptr : nameOf(folder);
  return name == nullptr ? path : *name + '/' + path;
}

// A second name of the file at `path`, which outlives the first: a replay can put back the very
// file, its number and times as they were. Empty when there is no recording.
std::string keep(const char* path) {
  static int count = 0;
  const char* folder = std::getenv("PELMAR_KEPT");  // NOLINT(concurrency-mt-unsafe)
  if (folder == nullptr) return {};
  std::string name = folder + std::string("/") + std::to_string(++count);
  return ::link(path, name.c_str()) == 0 ? name : std::string();
}

mode_t modeOf(int flags, va_list rest) {
  return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(rest, unsigned)) : 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = modeOf(flags, rest);
  va_end(rest);
  if (failsAt(kindOfOpen(flags), path)) return -1;
  return opened(nextFunction(&::open, "open")(path, flags, mode), path, flags);
}

int openat(int folder, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = modeOf(flags, rest);
  va_end(rest);
  const std::string name = pathFrom(folder, path);
  if (failsAt(kindOfOpen(flags), name)) return -1;
  return opened(nextFunction(&::openat, "openat")(folder, path, flags, mode), name, flags);
}

int close(int descriptor) {
  if (nameOf(descriptor) != nullptr) record({"close", std::to_string(descriptor)});
  clearName(descriptor);
  return nextFunction(&::close, "close")(descriptor);
}

ssize_t read(int descriptor, void* bytes, std::size_t length) {
  if (failsAt("read", descriptor, length)) return -1;
  return nextFunction(&::read, "read")(descriptor, bytes, length);
}

ssize_t write(int descriptor, const void* bytes, std::size_t length) {
  if (failsAt("write", descriptor, length)) return -1;
  const ssize_t count = nextFunction(&::write, "write")(descriptor, bytes, length);
  if (count > 0 && nameOf(descriptor) != nullptr) {
    recordBytes({"write", std::to_string(descriptor)}, bytes, static_cast<std::size_t>(count));
  }
  return count;
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept {
  if (failsAt("lseek", descriptor)) return -1;
  return nextFunction(&::lseek, "lseek")(descriptor, offset, whence);
}

int fsync(int descriptor) {
  if (failsAt("fsync", descriptor)) return -1;
  const int result = nextFunction(&::fsync, "fsync")(descriptor);
  if (result == 0) record({"flush", std::to_string(descriptor)});
  return result;
}

int ftruncate(int descriptor, off_t length) noexcept {
  if (failsAt("ftruncate", descriptor)) return -1;
  const int result = nextFunction(&::ftruncate, "ftruncate")(descriptor, length);
  if (result == 0) record({"cut", std::to_string(descriptor), std::to_string(length)});
  return result;
}

int rename(const char* from, const char* to) noexcept {
  if (failsAt("rename", to)) return -1;
  const std::string kept = keep(from);
  const int result = nextFunction(&::rename, "rename")(from, to);
  if (result == 0) record({"rename", from, to, kept});
  return result;
}

int unlink(const char* path) noexcept {
  if (failsAt("unlink", path)) return -1;
  const int result = nextFunction(&::unlink, "unlink")(path);
  if (result == 0) record({"unlink", path});
  return result;
}

int mkdir(const char* path, mode_t mode) noexcept {
  if (failsAt("mkdir", path)) return -1;
  const int result = nextFunction(&::mkdir, "mkdir")(path, mode);
  if (result == 0) record({"mkdir", path});
  return result;
}

int stat(const char* path, struct stat* status) noexcept {
  if (failsAt("stat", path)) return -1;
  return nextFunction(static_cast<int (*)(const char*, struct stat*)>(&::stat), "stat")(path,
                                                                                        status);
}

int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  if (failsAt("stat", pathFrom(folder, path))) return -1;
  return nextFunction(&::fstatat, "fstatat")(folder, path, status, flags);
}

int fstat(int descriptor, struct stat* status) noexcept {
  if (failsAt("fstat", descriptor)) return -1;
  return nextFunction(&::fstat, "fstat")(descriptor, status);
}

DIR* opendir(const char* path) {
  if (failsAt("opendir", path)) return nullptr;
  DIR* folder = nextFunction(&::opendir, "opendir")(path);
  if (folder != nullptr) setName(::dirfd(folder), isWatched(path) ? path : "");
  return folder;
}

dirent* readdir(DIR* folder) {
  if (failsAt("readdir", ::dirfd(folder))) return nullptr;
  return nextFunction(&::readdir, "readdir")(folder);
}

int closedir(DIR* folder) {
  clearName(::dirfd(folder));
  return nextFunction(&::closedir, "closedir")(folder);
}

}  // extern "C"
