#pragma once

// Owner of one file descriptor.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace pelmar {

class Descriptor {
 public:
  // As open(2), never inherited by children; not valid when that failed (errno says why).
  explicit Descriptor(const char* path, int flags, mode_t mode = 0) {
    do {
      value_ = ::open(path, flags | O_CLOEXEC, mode);
    } while (value_ < 0 && errno == EINTR);
  }
  ~Descriptor() {
    if (value_ >= 0) ::close(value_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool valid() const { return value_ >= 0; }
  int get() const { return value_; }

 private:
  int value_ = -1;
};

// False with errno set when not all of it could be written; a part then may be.
inline bool writeAll(const Descriptor& file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace pelmar
