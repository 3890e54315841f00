#pragma once

// A port of the loopback interface that is taken and never listened on: every connection is
// refused, and nobody else can begin to answer there.

#include <string>

namespace pelmar::test {

class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;

  std::string url() const;  // "http://127.0.0.1:<port>"

 private:
  int socket_;
  int port_;
};

}  // namespace pelmar::test
