#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/descriptor.h"

namespace pelmar {

// A regular file, for its owner only, that is held open and written to at its end. What fails once
// fails from then on, silently: for what can be done without.
class AppendFile {
 public:
  // Opens `path` or creates it, and cuts off what stands behind `length` bytes. A shorter file, a
  // link or anything else but a file fails.
  AppendFile(const std::string& path, std::size_t length);

  // One write. A part that was written before it failed stays.
  void append(std::string_view bytes);

  void cut(std::size_t length);

 private:
  Descriptor file_;
  bool isGood_;
};

}  // namespace pelmar
