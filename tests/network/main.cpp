#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>

#include "tests/network/own_network.h"

int main(int argc, char** argv) {
  const bool isListing = argc > 1 && std::strcmp(argv[1], "--gtest_list_tests") == 0;
  if (!isListing) pelmar::test::enterOwnNetwork(argv);
  // Each test says which proxy there is.
  for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                           "no_proxy", "NO_PROXY"}) {
    ::unsetenv(name);
  }
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
