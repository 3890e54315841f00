#pragma once

// What the tests of the local service share: the bodies an agent sends, and a client that shows
// every byte of an answer, however broken.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "service/local_service.h"
#include "tests/support/temp_root.h"

namespace pelmar::service {

using namespace std::chrono_literals;

inline constexpr const char* kKey = "sesame-key";
inline constexpr auto kPatience = 10s;

// A connection to 127.0.0.1.
class Client {
 public:
  explicit Client(const std::string& url);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void send(const std::string& bytes);

  // All that comes until `text` came or the other side closes.
  std::string readUntil(const std::string& text);

  // All that comes until the other side closes.
  std::string readToEnd();

 private:
  int socket_;
};

struct Answer {
  int status = 0;  // 0: no HTTP answer
  std::string head = {};
  std::string body = {};

  json value() const { return parseJson(body).value_or(nullptr); }
};

// `url` is the service's: its authority is the Host.
std::string requestTo(const std::string& url, const std::string& method, const std::string& target,
                      const std::string& body, const std::string& headers);

json stepNumbered(int position);
json stepsBody(int count);
json llmCall();

// A service on a database of its own, with a clock that stands still.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest();

  std::string requestText(const std::string& method, const std::string& target,
                          const std::string& body, const std::string& headers);

  // One exchange on a connection of its own.
  Answer exchange(const std::string& text);
  Answer post(const std::string& path, const json& body);
  Answer get(const std::string& target);

  // The id of a new daily run.
  std::string newRun();
  std::string stepsPath(const std::string& runId);

  static std::string keyHeader();

  // The path of a file in the test's folder.
  std::string file(const char* name) const { return root_.path() + "/" + name; }

  // Starts the service anew, on the same database.
  void restart();

  // Restarts the service with a database that takes no row of `table` for which `condition` holds,
  // where "new" is the row.
  void refuseRows(const std::string& table, const std::string& condition);

  test::TempRoot root_;
  TimePoint now_ = std::chrono::sys_days{std::chrono::January / 31 / 2026} + 23h + 59min;
  std::unique_ptr<LocalService> service_;
};

}  // namespace pelmar::service
