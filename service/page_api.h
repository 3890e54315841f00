#pragma once

// Answers the queries below /api/local/ that the page is made of. Writes nothing. The caller has
// checked the key or the token.

#include <optional>
#include <string_view>

#include "service/http_server.h"
#include "service/page_queries.h"

namespace pelmar::service {

// None when the path is none of the page's.
std::optional<HttpReply> answerPageQuery(const HttpRequest& request, PageQueries& queries,
                                         std::string_view today);

}  // namespace pelmar::service
