#pragma once

// What a query's parameters hold. Shared by the queries of programs and those of the page.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "service/http_server.h"

namespace pelmar::service {

// The empty string when it is not there.
std::string parameter(const HttpRequest& request, const char* key);

// None when it is no number from `least` on.
std::optional<std::int64_t> parseNumber(std::string_view text, std::int64_t least);

// The number at `key`, `byDefault` when it is not there, none when it is no number from `least`
// on.
std::optional<std::int64_t> numberAt(const HttpRequest& request, const char* key,
                                     std::int64_t byDefault, std::int64_t least);

// How many rows are asked for, 1 to 1000; none when that is wrong, which badLimit() answers.
std::optional<std::int64_t> limitOf(const HttpRequest& request);
HttpReply badLimit();

}  // namespace pelmar::service
