#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/descriptor.h"

namespace pelmar {

// A file, for its owner only, that is held open and written to at its end: for what can be done
// without.
class AppendFile {
 public:
  // Opens `path` or creates it, and cuts off what stands behind `length` bytes. Where a shorter
  // file, a link or no regular file stands, nothing is ever written.
  AppendFile(const std::string& path, std::size_t length);

  // One write. False when it failed: a part may have been written.
  bool append(std::string_view bytes);

  // False when it failed.
  bool cut(std::size_t length);

 private:
  Descriptor file_;
  bool isUsable_;
};

}  // namespace pelmar
