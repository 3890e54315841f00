#pragma once

// ObserveApi answers what agents ask the service: the six observe operations and the
// agent configuration of a device. It checks bodies strictly and stores what it accepts.
// It checks no service key and opens no transaction: its caller has done both.

#include <string>
#include <string_view>
#include <vector>

#include "platform/json.h"
#include "service/http_server.h"
#include "service/store.h"

namespace pelmar::service {

// A device that may ask for its agent's configuration, and what it is answered.
struct Device {
  std::string token;
  std::string tenant;
  std::string process;
  json answer;
};

class ObserveApi {
 public:
  explicit ObserveApi(Store& store) : store_(store) {}

  void registerDevice(Device device) { devices_.push_back(std::move(device)); }

  // Whether requests for `path` identify themselves by a device token, not the service key.
  static bool isForDevices(std::string_view path);

  // A status of 500 says that the store failed and the transaction must not stand.
  HttpReply answer(const HttpRequest& request, TimePoint now);

 private:
  HttpReply answerDevice(const HttpRequest& request) const;
  HttpReply answerPost(const std::string& path, const json& body, TimePoint now);
  HttpReply startRun(const json& body, TimePoint now);
  HttpReply findOrStartDailyRun(const json& body, TimePoint now);
  HttpReply record(const std::string& runId, std::string_view what, const json& body,
                   TimePoint now);
  HttpReply heartbeat(const std::string& agentSlug, const json& body, TimePoint now);

  Store& store_;
  std::vector<Device> devices_;
};

}  // namespace pelmar::service
