#include "audit/event_names.h"

#include "platform/json.h"

namespace pelmar {
namespace {

std::string textOr(const json& payload, const char* key, const char* fallback) {
  const std::string* text = stringAt(payload, key);
  return text == nullptr ? fallback : *text;
}

std::string identityOf(const json& lineObj, const json& payload) {
  for (const std::string* identity :
       {stringAt(lineObj, "uuid"), stringAt(lineObj, "id"), stringAt(payload, "message_id"),
        stringAt(payload, "tool_use_id")}) {
    if (identity != nullptr) return *identity;
  }
  return {};
}

}  // namespace

std::string eventDedupKey(const json& lineObj, const CoworkEvent& event) {
  return identityOf(lineObj, event.payload) + ':' + event.kind + ':' +
         textAt(event.payload, "tool_use_id");
}

std::string stepNameForEvent(const CoworkEvent& event) {
  const auto toolName = [&event] { return textOr(event.payload, "tool_name", "tool"); };
  if (event.kind == "tool_use") return "cowork:tool_use:" + toolName();
  if (event.kind == "tool_use_summary") return "cowork:tool_summary:" + toolName();
  if (event.kind.starts_with("permission:")) {
    return "cowork:" + event.kind + ':' + toolName() + ':' +
           textOr(event.payload, "decision", "unknown");
  }
  return "cowork:" + event.kind;
}

}  // namespace pelmar
