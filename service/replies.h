#pragma once

// The answers that the observe API and the queries have in common.

#include <string>

#include "platform/json.h"
#include "service/http_server.h"

namespace pelmar::service {

inline HttpReply jsonReply(const json& body, int status = 200) {
  return {.status = status, .body = compactJson(body)};
}

inline HttpReply errorReply(int status, const std::string& error) {
  return jsonReply({{"error", error}}, status);
}

// An error about one key of the body or the query.
inline HttpReply keyErrorReply(int status, const std::string& error, const std::string& key) {
  return jsonReply({{"error", error}, {"key", key}}, status);
}

}  // namespace pelmar::service
