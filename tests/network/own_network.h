#pragma once

// The tests run in a network of their own where bubblewrap can make one: a loopback interface that
// nobody else uses, an /etc whose name lookup and trusted certificates are theirs to write.

#include <string>

namespace pelmar::test {

// Starts this program again inside of such a network; returns there, or where none can be made.
void enterOwnNetwork(char** argv);

bool isOwnNetwork();

// The three below only inside of it.

// What /etc/hosts holds.
void setHosts(const std::string& lines);

// What name lookup asks behind the hosts file.
void setResolver(const std::string& lines);

// The one authority that libcurl trusts, as PEM text.
void trust(const std::string& authority);

}  // namespace pelmar::test

// For the begin of a test that needs it.
#define NEEDS_OWN_NETWORK()                                                         \
  if (!::pelmar::test::isOwnNetwork()) {                                            \
    GTEST_SKIP() << "bubblewrap cannot give the tests a network of their own here"; \
  }                                                                                 \
  static_assert(true)
