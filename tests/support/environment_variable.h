#pragma once

#include <optional>
#include <string>

namespace pelmar::test {

// Sets a variable of the environment, or takes it away when `value` is none, until the end of its
// life.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const std::optional<std::string>& value);
  ~EnvironmentVariable();
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_{};
};

}  // namespace pelmar::test
