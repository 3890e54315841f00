#pragma once

// Answers GET below /api/local/: what the service holds, as JSON, in pages.
// Writes nothing. The caller has checked the key.

#include <string_view>

#include "service/http_server.h"
#include "service/queries.h"
#include "service/store.h"

namespace pelmar::service {

bool isQueryPath(std::string_view path);

HttpReply answerQuery(const HttpRequest& request, Store& store, Queries& queries);

}  // namespace pelmar::service
