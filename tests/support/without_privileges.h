#pragma once

// For its lifetime the process cannot do what permissions forbid, also when the tests run as root.
// The folders on the way to what is tested must let others through.

#include <string>

namespace pelmar::test {

class WithoutPrivileges {
 public:
  WithoutPrivileges();
  ~WithoutPrivileges();
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;
};

// Lets everybody read `folder` and all below it, and go through its folders.
void openToAll(const std::string& folder);

}  // namespace pelmar::test
