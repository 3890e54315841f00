#pragma once

// The one JSON value of the system and the few ways it is read and written.
// Reading is lenient: a value of another type than the one asked for is missing.
// Nothing here throws, whatever the text.

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace pelmar {

using nlohmann::json;

// Deeper text is refused, so that no later walk over the value exhausts the stack.
inline constexpr int kMaxJsonDepth = 512;

// The value that `text` holds (RFC 8259; of duplicate keys the last one wins), or
// none when it is not JSON, not UTF-8, nested deeper than `maxDepth`, or holds a
// number beyond the range of a double. Integers beyond 64 bits become doubles.
std::optional<json> parseJson(std::string_view text, int maxDepth = kMaxJsonDepth);

// As parseJson, and none when the top level is not an object.
std::optional<json> parseJsonObject(std::string_view text, int maxDepth = kMaxJsonDepth);

// Hands over the members of the object that `text` holds, one after the other as they stand there,
// and holds the value of one only (of all where one holds an integer beyond 64 bits). False, and
// nothing is handed over, where parseJsonObject is none.
bool forEachMember(std::string_view text,
                   const std::function<void(const std::string& key, const json& value)>& onMember);

// The string at `key` of `object`, or null when the key is absent or holds another type.
// Points into `object`.
const std::string* stringAt(const json& object, const char* key);

// The string at `key` of `object`, or the empty string.
std::string textAt(const json& object, const char* key);

// textAt of what parseJsonObject makes of `text`, in a fraction of the time; empty also where that
// is none.
std::string textInJsonObject(std::string_view text, std::string_view key);

// The number that `value` holds when it is exactly a signed 64-bit integer (50 and 50.0 are).
std::optional<std::int64_t> exactInteger(const json& value);

// Compact JSON text. Bytes that are not UTF-8 (a path of the file system may hold some)
// become U+FFFD.
std::string compactJson(const json& value);

// Indented JSON text with every "/" inside strings written as "\/". Bytes as in compactJson.
std::string indentedJsonEscapingSlashes(const json& value);

// compactJson with every "/" inside strings written as "\/".
std::string compactJsonEscapingSlashes(const json& value);

}  // namespace pelmar
