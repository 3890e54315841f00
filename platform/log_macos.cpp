#include <os/log.h>

#include "platform/log.h"

namespace pelmar {
namespace {

void write(const char* category, os_log_type_t type, std::string_view text) {
  // os_log_create answers the same handle for the same names, so none is kept.
  os_log_t handle = os_log_create("dev.pelmar.setup", category);
  os_log_with_type(handle, type, "%{public}.*s", static_cast<int>(text.size()), text.data());
}

}  // namespace

void Logger::message(std::string_view text) const { write(category_, OS_LOG_TYPE_DEFAULT, text); }
void Logger::error(std::string_view text) const { write(category_, OS_LOG_TYPE_ERROR, text); }
void Logger::debug(std::string_view text) const { write(category_, OS_LOG_TYPE_DEBUG, text); }

}  // namespace pelmar
