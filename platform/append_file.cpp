#include "platform/append_file.h"

#include <sys/stat.h>

#include "platform/uninterrupted.h"

namespace pelmar {
namespace {

bool hasAtLeast(std::size_t length, const Descriptor& file) {
  struct stat status {};
  return file.valid() && uninterrupted([&] { return ::fstat(file.get(), &status); }) == 0 &&
         static_cast<std::size_t>(status.st_size) >= length;
}

}  // namespace

AppendFile::AppendFile(const std::string& path, std::size_t length)
    : file_(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600),
      // What is no regular file cannot be cut.
      isUsable_(hasAtLeast(length, file_) && cut(length)) {}

bool AppendFile::append(std::string_view bytes) { return isUsable_ && writeAll(file_, bytes); }

bool AppendFile::cut(std::size_t length) {
  return uninterrupted([&] { return ::ftruncate(file_.get(), static_cast<off_t>(length)); }) == 0;
}

}  // namespace pelmar
