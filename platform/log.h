#pragma once

// The unified system log: os_log on macOS (log_macos.cpp); elsewhere the journal when
// stderr leads there, otherwise one line a message on stderr (log_linux.cpp).
// Messages are public: no key, token or transcript text is ever handed in.

#include <string_view>

namespace pelmar {

class Logger {
 public:
  // A handle of the subsystem "dev.pelmar.setup". `category` is a string literal.
  constexpr explicit Logger(const char* category) : category_(category) {}

  // The three levels in use. "message" is the default level of os_log.
  void message(std::string_view text) const;
  void error(std::string_view text) const;
  void debug(std::string_view text) const;

 private:
  const char* category_;
};

}  // namespace pelmar
