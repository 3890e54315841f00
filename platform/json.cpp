#include "platform/json.h"

#include <simdjson.h>

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

// simdjson reads five times as fast as the library of the value, but refuses more than has to be:
// integers beyond 64 bits. What it refuses, and what is so long that its buffers would weigh on
// memory, is left to the other.
constexpr std::size_t kMostFastBytes = 4 * 1024 * 1024;
constexpr std::size_t kMostKeptBytes = 256 * 1024;  // for longer texts the buffers are made anew

enum class Buffers { kept, own };

// What simdjson makes of `text`. One that uses the kept buffers must be gone before the next of its
// thread begins.
class FastReading {
 public:
  FastReading(std::string_view text, int maxDepth, Buffers buffers = Buffers::kept) {
    const bool isKept = buffers == Buffers::kept && text.size() <= kMostKeptBytes;
    auto& parser = isKept ? keptParser() : own_.emplace();
    const auto depth = static_cast<std::size_t>(maxDepth);
    if (parser.max_depth() != depth &&
        parser.allocate(isKept ? kMostKeptBytes : text.size(), depth) != simdjson::SUCCESS) {
      return;
    }
    simdjson::dom::element root;
    if (parser.parse(text.data(), text.size()).get(root) == simdjson::SUCCESS) root_ = root;
  }

  // None when the text is refused. Lives as long as this object.
  const std::optional<simdjson::dom::element>& root() const { return root_; }

 private:
  static simdjson::dom::parser& keptParser() {
    thread_local simdjson::dom::parser parser;
    return parser;
  }

  std::optional<simdjson::dom::parser> own_{};
  std::optional<simdjson::dom::element> root_{};
};

json valueOf(simdjson::dom::element element) {
  using simdjson::dom::element_type;
  switch (element.type()) {
    case element_type::OBJECT: {
      json::object_t object;
      for (const auto [key, value] : simdjson::dom::object(element)) {
        object.insert_or_assign(std::string(key), valueOf(value));
      }
      return object;
    }
    case element_type::ARRAY: {
      const simdjson::dom::array elements(element);
      json::array_t array;
      array.reserve(elements.size());
      for (const auto value : elements) array.push_back(valueOf(value));
      return array;
    }
    case element_type::STRING:
      return std::string_view(element);
    case element_type::INT64: {
      const std::int64_t number(element);
      if (number < 0) return number;
      return static_cast<std::uint64_t>(number);
    }
    case element_type::UINT64:
      return std::uint64_t(element);
    case element_type::DOUBLE:
      return double(element);
    case element_type::BOOL:
      return bool(element);
    case element_type::NULL_VALUE:
      break;
  }
  return nullptr;
}

std::optional<json> readSlowly(std::string_view text, int maxDepth) {
  // The library takes a NUL byte for the end of its input.
  if (text.find('\0') != std::string_view::npos || isNestedDeeper(text, maxDepth))
    return std::nullopt;
  json value = json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<json> parseJson(std::string_view text, int maxDepth) {
  if (text.size() <= kMostFastBytes) {
    const FastReading reading(text, maxDepth);
    if (reading.root()) return valueOf(*reading.root());
  }
  return readSlowly(text, maxDepth);
}

std::optional<json> parseJsonObject(std::string_view text, int maxDepth) {
  auto value = parseJson(text, maxDepth);
  if (!value || !value->is_object()) return std::nullopt;
  return value;
}

bool forEachMember(std::string_view text,
                   const std::function<void(const std::string& key, const json& value)>& onMember) {
  const FastReading reading(text, kMaxJsonDepth, Buffers::own);  // `onMember` may read, too
  if (reading.root()) {
    simdjson::dom::object object;
    if (reading.root()->get(object) != simdjson::SUCCESS) return false;
    for (const auto [key, value] : object) onMember(std::string(key), valueOf(value));
    return true;
  }
  auto value = readSlowly(text, kMaxJsonDepth);
  if (!value || !value->is_object()) return false;
  for (const auto& [key, member] : value->items()) onMember(key, member);
  return true;
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

std::string textInJsonObject(std::string_view text, std::string_view key) {
  const FastReading reading(text, kMaxJsonDepth);
  if (reading.root()) {
    simdjson::dom::object object;
    std::string_view found;
    if (reading.root()->get(object) != simdjson::SUCCESS) return {};
    for (const auto [name, value] : object) {
      if (name != key) continue;
      if (value.get(found) != simdjson::SUCCESS) found = {};
    }
    return std::string(found);
  }
  const auto object = readSlowly(text, kMaxJsonDepth);
  return object ? textAt(*object, std::string(key).c_str()) : std::string();
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
