#include "service/query_parameters.h"

#include <charconv>

#include "service/replies.h"

namespace pelmar::service {
namespace {

constexpr std::int64_t kDefaultLimit = 100;
constexpr std::int64_t kMaxLimit = 1000;

}  // namespace

std::string parameter(const HttpRequest& request, const char* key) {
  const auto found = request.query.find(key);
  return found == request.query.end() ? std::string() : found->second;
}

std::optional<std::int64_t> parseNumber(std::string_view text, std::int64_t least) {
  std::int64_t number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || number < least) {
    return std::nullopt;
  }
  return number;
}

std::optional<std::int64_t> numberAt(const HttpRequest& request, const char* key,
                                     std::int64_t byDefault, std::int64_t least) {
  const auto found = request.query.find(key);
  return found == request.query.end() ? byDefault : parseNumber(found->second, least);
}

std::optional<std::int64_t> limitOf(const HttpRequest& request) {
  const auto limit = numberAt(request, "limit", kDefaultLimit, 1);
  return limit && *limit <= kMaxLimit ? limit : std::nullopt;
}

HttpReply badLimit() { return keyErrorReply(400, "must be a number from 1 to 1000", "limit"); }

}  // namespace pelmar::service
