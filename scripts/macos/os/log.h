#pragma once

// The declarations of Apple's os/log.h that the agent uses, for ../../check-macos: Zig's headers do
// not hold it. The format is checked and laid out by clang's own builtin, as Apple's macro does.

#include <cstdint>

extern "C" {

struct os_log_s;
using os_log_t = os_log_s*;
using os_log_type_t = std::uint8_t;

enum : os_log_type_t {
  OS_LOG_TYPE_DEFAULT = 0x00,
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_DEBUG = 0x02,
  OS_LOG_TYPE_ERROR = 0x10,
  OS_LOG_TYPE_FAULT = 0x11,
};

extern void* __dso_handle;

os_log_t os_log_create(const char* subsystem, const char* category);
bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void _os_log_impl(void* image, os_log_t log, os_log_type_t type, const char* format,
                  std::uint8_t* arguments, std::uint32_t size);
}

#define os_log_with_type(log, type, format, ...)                                          \
  do {                                                                                    \
    const os_log_t handle_ = (log);                                                       \
    const os_log_type_t type_ = (type);                                                   \
    if (os_log_type_enabled(handle_, type_)) {                                            \
      std::uint8_t arguments_[__builtin_os_log_format_buffer_size(format, __VA_ARGS__)];  \
      __builtin_os_log_format(arguments_, format, __VA_ARGS__);                           \
      _os_log_impl(&__dso_handle, handle_, type_, format, arguments_, sizeof arguments_); \
    }                                                                                     \
  } while (false)
