#include "audit/lenient_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "platform/fatal.h"
#include "platform/json.h"
#include "platform/text.h"

namespace pelmar {
namespace {

std::string joinedTexts(const json& blocks) {
  std::string joined;
  bool isFirst = true;
  for (const json& block : blocks) {
    const std::string* text = stringAt(block, "text");
    if (text == nullptr) text = stringAt(block, "content");
    if (text == nullptr) continue;
    if (!isFirst) joined += '\n';
    joined += *text;
    isFirst = false;
  }
  return joined;
}

std::int64_t integerIn(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
  }
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

}  // namespace

bool isArrayOfObjects(const json& value) {
  return value.is_array() && std::all_of(value.begin(), value.end(),
                                         [](const json& element) { return element.is_object(); });
}

std::string summarizeContent(const json* value, std::size_t maxLen) {
  if (value == nullptr || value->is_null()) return {};
  const auto* text = value->get_ptr<const std::string*>();
  if (text != nullptr) return std::string(firstCharacters(*text, maxLen));
  const std::string rendered = isArrayOfObjects(*value) ? joinedTexts(*value) : compactJson(*value);
  return std::string(firstCharacters(rendered, maxLen));
}

std::int64_t intFrom(const json* value) {
  if (value == nullptr) return 0;
  if (const auto* text = value->get_ptr<const std::string*>()) return integerIn(*text);
  if (!value->is_number()) return 0;
  const auto exact = value->is_number_float() ? exactInteger(std::trunc(value->get<double>()))
                                              : exactInteger(*value);
  if (!exact) fatal("a count in a transcript lies beyond the 64-bit integer range");
  return *exact;
}

}  // namespace pelmar
