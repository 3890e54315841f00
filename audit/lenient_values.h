#pragma once

// How the parser reads values whose type the transcript does not promise.

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace pelmar {

// Whether `value` is an array that holds nothing but objects; an empty one does.
bool isArrayOfObjects(const nlohmann::json& value);

// The first `maxLen` user-perceived characters of a tool result's content: a string, the "text" or
// "content" strings of an array of objects joined by line feeds, or the compact JSON text of
// anything else. Null and a null pointer give the empty string.
std::string summarizeContent(const nlohmann::json* value, std::size_t maxLen);

// `value` as a count: a number truncated toward zero, or a string that is a base-10 integer; 0 for
// everything else and for a null pointer. A number beyond the signed 64-bit range ends the process.
std::int64_t intFrom(const nlohmann::json* value);

}  // namespace pelmar
