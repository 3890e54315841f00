#pragma once

// Owner of one file descriptor.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

#include "platform/uninterrupted.h"

namespace pelmar {

class Descriptor {
 public:
  // As open(2), never inherited by children; not valid when that failed (errno says why).
  explicit Descriptor(const char* path, int flags, mode_t mode = 0)
      : value_(uninterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); })) {}
  // The same for `name` below the open folder `folder`.
  Descriptor(int folder, const char* name, int flags)
      : value_(uninterrupted([&] { return ::openat(folder, name, flags | O_CLOEXEC); })) {}
  ~Descriptor() {
    if (value_ >= 0) ::close(value_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool valid() const { return value_ >= 0; }
  int get() const { return value_; }

 private:
  int value_;
};

// False with errno set when not all of it could be written; a part then may be.
inline bool writeAll(const Descriptor& file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count =
        uninterrupted([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
    if (count == 0) errno = EIO;  // it would stay at that
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace pelmar
