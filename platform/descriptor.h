#pragma once

// Owner of one file descriptor.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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

}  // namespace pelmar
