#pragma once

// Answers GET /api/local/export.jsonl and export.csv: a run, or everything, as a file. It is
// written row by row while the service goes on.

#include <functional>
#include <optional>

#include "service/http_server.h"
#include "service/page_queries.h"

namespace pelmar::service {

// Runs what it is given while nothing else uses the database.
using Locked = std::function<void(const std::function<void()>&)>;

// None when the path is no export's. The queries must outlive the reply's stream.
std::optional<HttpReply> answerExport(const HttpRequest& request, PageQueries& queries,
                                      Locked locked);

// A field of a CSV line, quoted. One that a spreadsheet would take for a formula gets an
// apostrophe in front.
std::string csvField(const json& value);

}  // namespace pelmar::service
