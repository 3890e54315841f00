#include "platform/append_file.h"

#include <sys/stat.h>

namespace pelmar {
namespace {

bool isFileOfAtLeast(const Descriptor& file, std::size_t length) {
  struct stat status {};
  return file.valid() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
         static_cast<std::size_t>(status.st_size) >= length;
}

}  // namespace

AppendFile::AppendFile(const std::string& path, std::size_t length)
    : file_(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600),
      isGood_(isFileOfAtLeast(file_, length)) {
  cut(length);
}

void AppendFile::append(std::string_view bytes) { isGood_ = isGood_ && writeAll(file_, bytes); }

void AppendFile::cut(std::size_t length) {
  isGood_ = isGood_ && ::ftruncate(file_.get(), static_cast<off_t>(length)) == 0;
}

}  // namespace pelmar
