// A program of its own, since its name lookup, which stands in for the system's, never answers
// while a test waits.

#include <gtest/gtest.h>
#include <netdb.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/http.h"

namespace {

std::mutex mutex;
std::condition_variable released;
bool isReleased = false;

}  // namespace

// Found before the C library's by libcurl.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* /*node*/,
                                                                  const char* /*service*/,
                                                                  const addrinfo* /*hints*/,
                                                                  addrinfo** /*answer*/) {
  std::unique_lock lock(mutex);
  released.wait(lock, [] { return isReleased; });
  return EAI_AGAIN;
}

namespace pelmar {
namespace {

// Were the lookup waited for, the test would stand still until its time limit.
TEST(NameLookup, OneThatNeverAnswersEndsWithTheDeadline) {
  const auto exchange = HttpClient().send(
      {.url = "http://service.example/", .body = "{}", .deadline = std::chrono::milliseconds(200)});
  EXPECT_TRUE(exchange.isTimeout());
  const std::lock_guard lock(mutex);
  isReleased = true;
  released.notify_all();
}

}  // namespace
}  // namespace pelmar
