#include "service/step_facts.h"

#include <algorithm>
#include <array>

namespace pelmar::service {
namespace {

// Fields that hold names, ids, times and counts. Every other one counts as free text, so that a
// field nobody thought of shows up.
constexpr std::array<std::string_view, 21> kNotFree = {
    "kind",         "timestamp", "source",           "session_id", "hardware_uuid",
    "tool_use_id",  "tool_name", "message_id",       "model",      "usage",
    "decision",     "status",    "subtype",          "type",       "inner_session_id",
    "compact_type", "resets_at", "tokens_remaining", "tools",      "tokens_used",
    "auto_approved"};

std::string_view categoryOf(std::string_view kind, std::string_view field) {
  if (field == "tool_input" || field == "tool_uses") return "tool input";
  if (kind == "tool_result" || kind == "tool_use_summary") return "tool output";
  if (field == "text" && kind == "user_message") return "user text";
  if (field == "text" && kind == "assistant") return "model text";
  return "other";
}

// The tools that an assistant's step calls, such as "calls Bash, Read"; empty when it calls none.
std::string callsOf(const json& output) {
  const auto uses = output.find("tool_uses");
  std::string calls;
  if (uses == output.end() || !uses->is_array()) return calls;
  for (const json& use : *uses) {
    calls += calls.empty() ? "calls " : ", ";
    calls += textAt(use, "tool_name");
  }
  return calls;
}

std::string previewOf(const json& output) {
  for (const char* field : {"text", "content", "summary", "message", "reason", "status", "cwd"}) {
    const std::string* text = stringAt(output, field);
    if (text != nullptr && !text->empty()) return *text;
  }
  const auto input = output.find("tool_input");
  if (input == output.end() || input->empty()) return callsOf(output);
  // One text, such as a command or a path, says more than the object around it.
  if (input->is_object() && input->size() == 1 && input->front().is_string()) {
    return input->front().get<std::string>();
  }
  return compactJson(*input);
}

bool isFailure(std::string_view kind, const json& output) {
  const auto flag = output.find("is_error");
  return (flag != output.end() && *flag == true) || kind.substr(0, 12) == "result:error";
}

}  // namespace

std::int64_t freeTextBytes(const json& value) {
  if (value.is_string())
    return static_cast<std::int64_t>(value.get_ref<const std::string&>().size());
  if (!value.is_structured() || value.empty()) return 0;
  return static_cast<std::int64_t>(compactJson(value).size());
}

StepFacts factsOf(std::string_view kind, const json& output) {
  StepFacts facts{.toolName = textAt(output, "tool_name"),
                  .toolUseId = textAt(output, "tool_use_id"),
                  .isError = isFailure(kind, output),
                  .preview = previewOf(output)};
  for (const auto& [field, value] : output.items()) {
    if (std::find(kNotFree.begin(), kNotFree.end(), field) != kNotFree.end()) continue;
    const std::int64_t bytes = freeTextBytes(value);
    if (bytes > 0) facts.freeText.push_back({field, categoryOf(kind, field), bytes});
  }
  return facts;
}

std::int64_t digestOf(std::string_view text) {
  std::uint64_t hash = 14695981039346656037U;  // FNV-1a
  for (const char byte : text) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211U;
  }
  return static_cast<std::int64_t>(hash);
}

}  // namespace pelmar::service
