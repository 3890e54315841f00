#pragma once

// What the page wants to know of a step without reading it again: its tool, whether it failed,
// its first words, and how much free text it carries. Pure.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json.h"

namespace pelmar::service {

// A field that carries what a person, a model or a tool wrote.
struct FreeText {
  std::string field = {};
  std::string_view category =
      {};                  // "user text", "model text", "tool input", "tool output", "other"
  std::int64_t bytes = 0;  // UTF-8 of a text; of an object or an array, its compact JSON
};

struct StepFacts {
  std::string toolName = {};
  std::string toolUseId = {};
  bool isError = false;
  std::string preview = {};  // may be long
  std::vector<FreeText> freeText = {};
};

StepFacts factsOf(std::string_view kind, const json& output);

// The bytes that count as free text of `value`; 0 when it holds none.
std::int64_t freeTextBytes(const json& value);

// Equal for equal text, also in another process.
std::int64_t digestOf(std::string_view text);

}  // namespace pelmar::service
