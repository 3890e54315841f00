#include "platform/json.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pelmar {
namespace {

// Counts brackets outside of strings. Only asked about text that holds more brackets than
// the limit allows levels, so that ordinary lines pay for two counts and no walk.
bool isNestedDeeper(std::string_view text, int maxDepth) {
  const auto opening =
      std::count(text.begin(), text.end(), '[') + std::count(text.begin(), text.end(), '{');
  if (opening <= maxDepth) return false;
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth) return true;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return false;
}

std::string escapingSlashes(std::string text) {
  const auto slashes = std::count(text.begin(), text.end(), '/');  // none is outside of strings
  if (slashes == 0) return text;
  std::string escaped;
  escaped.reserve(text.size() + static_cast<std::size_t>(slashes));
  std::size_t done = 0;
  for (auto at = text.find('/'); at != text.npos; at = text.find('/', at + 1)) {
    escaped.append(text, done, at - done).append(1, '\\');
    done = at;
  }
  return escaped.append(text, done);
}

constexpr auto kReplaceIllFormed = json::error_handler_t::replace;

}  // namespace

std::optional<json> parseJson(std::string_view text, int maxDepth) {
  // The library takes a NUL byte for the end of its input.
  if (text.find('\0') != std::string_view::npos || isNestedDeeper(text, maxDepth))
    return std::nullopt;
  json value = json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

std::optional<json> parseJsonObject(std::string_view text, int maxDepth) {
  auto value = parseJson(text, maxDepth);
  if (!value || !value->is_object()) return std::nullopt;
  return value;
}

const std::string* stringAt(const json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found == object.end() ? nullptr : found->get_ptr<const std::string*>();
}

std::string textAt(const json& object, const char* key) {
  const std::string* text = stringAt(object, key);
  return text == nullptr ? std::string() : *text;
}

std::optional<std::int64_t> exactInteger(const json& value) {
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(number);
  }
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (value.is_number_float()) {
    const auto number = value.get<double>();
    // 2^63 is the first double behind the range; -2^63 is in it.
    if (std::trunc(number) == number && number >= -0x1p63 && number < 0x1p63) {
      return static_cast<std::int64_t>(number);
    }
  }
  return std::nullopt;
}

std::string compactJson(const json& value) { return value.dump(-1, ' ', false, kReplaceIllFormed); }

std::string indentedJsonEscapingSlashes(const json& value) {
  return escapingSlashes(value.dump(2, ' ', false, kReplaceIllFormed));
}

std::string compactJsonEscapingSlashes(const json& value) {
  return escapingSlashes(compactJson(value));
}

}  // namespace pelmar
