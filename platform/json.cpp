#include "platform/json.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pelmar {
namespace {

// Goes through the bytes of `text` that stand outside of strings, up to the one at which `onByte`
// says false; whether it came to the end.
template <typename OnByte>
bool walkOutsideStrings(std::string_view text, OnByte onByte) {
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      inString = !inString;
    } else if (!inString) {
      if (!onByte(i)) return false;
    } else if (c == '\\') {
      ++i;
    }
  }
  return true;
}

// By how much a byte outside of strings changes the depth.
int deeperBy(char c) {
  if (c == '[' || c == '{') return 1;
  return c == ']' || c == '}' ? -1 : 0;
}

// Only text that holds more brackets than the limit allows levels is walked, so that ordinary lines
// pay for two counts.
bool isNestedDeeper(std::string_view text, int maxDepth) {
  const auto opening =
      std::count(text.begin(), text.end(), '[') + std::count(text.begin(), text.end(), '{');
  if (opening <= maxDepth) return false;
  int depth = 0;
  return !walkOutsideStrings(text, [&](std::size_t at) {
    depth += deeperBy(text[at]);
    return depth <= maxDepth;
  });
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

bool forEachMember(std::string_view text,
                   const std::function<void(const std::string& key, const json& value)>& onMember) {
  if (text.find('\0') != std::string_view::npos || isNestedDeeper(text, kMaxJsonDepth) ||
      !json::accept(text.begin(), text.end())) {
    return false;
  }
  std::size_t begin = text.find_first_of("{[\"");  // of a member: first behind the root's bracket
  if (begin == text.npos || text[begin] != '{') return false;
  ++begin;
  int depth = 0;
  return walkOutsideStrings(text, [&](std::size_t at) {
    depth += deeperBy(text[at]);
    if (depth > 1 || (text[at] != ',' && text[at] != '}')) return true;
    if (depth == 1 && text[at] == '}') return true;  // of a member
    const auto member = parseJsonObject('{' + std::string(text.substr(begin, at - begin)) + '}');
    if (!member) return false;
    for (const auto& [key, value] : member->items()) onMember(key, value);
    begin = at + 1;
    return true;
  });
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
