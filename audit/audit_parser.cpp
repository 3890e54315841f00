#include "audit/audit_parser.h"

#include <string>
#include <utility>

#include "audit/lenient_values.h"
#include "platform/json.h"

namespace pelmar::AuditParser {
namespace {

constexpr std::size_t kSummaryCharacters = 500;

const json& emptyObject() {
  static const json object = json::object();
  return object;
}

const json& emptyArray() {
  static const json array = json::array();
  return array;
}

const json* valueAt(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

// The value at `key` of whatever type, or `absent`.
const json& valueOr(const json& object, const char* key, const json& absent) {
  const json* value = valueAt(object, key);
  return value == nullptr ? absent : *value;
}

const json& objectAt(const json& object, const char* key) {
  const json& value = valueOr(object, key, emptyObject());
  return value.is_object() ? value : emptyObject();
}

// The array at `key` when it holds nothing but objects, else an empty one.
const json& blocksAt(const json& object, const char* key) {
  const json& value = valueOr(object, key, emptyArray());
  return isArrayOfObjects(value) ? value : emptyArray();
}

bool flagAt(const json& object, const char* key) {
  const json* value = valueAt(object, key);
  return value != nullptr && value->is_boolean() && value->get<bool>();
}

// Copies those of `keys` that `line` has, of whatever type.
void copyPresent(const json& line, std::initializer_list<const char*> keys, json& payload) {
  for (const char* key : keys) {
    if (const json* value = valueAt(line, key)) payload[key] = *value;
  }
}

// The message's own session id; its id stands in for one on purpose.
const std::string* innerSessionID(const json& line) {
  const json& message = objectAt(line, "message");
  const std::string* inner = stringAt(message, "session_id");
  return inner != nullptr ? inner : stringAt(message, "id");
}

std::string sessionIdOf(const json& line) {
  for (const std::string* id :
       {stringAt(line, "session_id"), stringAt(line, "sessionId"), innerSessionID(line)}) {
    if (id != nullptr) return *id;
  }
  return {};
}

std::string timestampOf(const json& line, TimePoint now) {
  for (const char* key : {"_audit_timestamp", "timestamp"}) {
    if (const std::string* timestamp = stringAt(line, key)) return *timestamp;
  }
  return iso8601Milliseconds(now);
}

using KindAndPayload = std::pair<std::string, json>;

KindAndPayload sessionInit(const json& line) {
  return {"session_init",
          {{"cwd", textAt(line, "cwd")},
           {"model", textAt(line, "model")},
           {"tools", valueOr(line, "tools", emptyArray())},
           {"inner_session_id", textAt(line, "session_id")}}};
}

KindAndPayload permission(const json& line, const std::string& action) {
  return {"permission:" + action,
          {{"tool_name", textAt(line, "tool_name")},
           {"tool_input", valueOr(line, "tool_input", emptyObject())},
           {"decision", textAt(line, "decision")},
           {"reason", textAt(line, "reason")},
           {"auto_approved", action == "auto_approved"}}};
}

KindAndPayload systemStatus(const json& line) {
  return {"system_status",
          {{"status", textAt(line, "status")}, {"message", textAt(line, "message")}}};
}

KindAndPayload compactBoundary(const json& line) {
  json payload = {{"compact_type", textAt(line, "compact_type")}};
  copyPresent(line, {"pre_tokens", "post_tokens"}, payload);
  return {"compact_boundary", std::move(payload)};
}

KindAndPayload result(const json& line, const std::string& subtype) {
  json payload = {{"subtype", subtype}, {"summary", textAt(line, "summary")}};
  copyPresent(line, {"duration_ms", "num_turns", "total_cost_usd"}, payload);
  return {"result:" + (subtype.empty() ? "unknown" : subtype), std::move(payload)};
}

KindAndPayload toolUseSummary(const json& line) {
  return {"tool_use_summary",
          {{"tool_name", textAt(line, "tool_name")},
           {"tool_use_id", textAt(line, "tool_use_id")},
           {"is_error", flagAt(line, "is_error")},
           {"summary", textAt(line, "summary")}}};
}

KindAndPayload rateLimit(const json& line) {
  json payload = {{"status", textAt(line, "status")}};
  copyPresent(line, {"resets_at", "tokens_remaining", "tokens_used"}, payload);
  return {"rate_limit", std::move(payload)};
}

KindAndPayload unknown(const std::string& type, const std::string& subtype) {
  return {"unknown", {{"type", type}, {"subtype", subtype}}};
}

std::vector<KindAndPayload> user(const json& line) {
  const json& message = objectAt(line, "message");
  const std::string* text = stringAt(message, "content");
  if (text != nullptr && !text->empty()) return {{"user_message", {{"text", *text}}}};
  std::vector<KindAndPayload> events;
  for (const json& block : blocksAt(message, "content")) {
    if (textAt(block, "type") != "tool_result") continue;
    events.push_back(
        {"tool_result",
         {{"tool_use_id", textAt(block, "tool_use_id")},
          {"is_error", flagAt(block, "is_error")},
          {"content", summarizeContent(valueAt(block, "content"), kSummaryCharacters)}}});
  }
  return events;
}

json toolUseOf(const json& block) {
  return {{"tool_use_id", textAt(block, "id")},
          {"tool_name", textAt(block, "name")},
          {"tool_input", valueOr(block, "input", emptyObject())}};
}

json usageOf(const json& message) {
  const json& usage = objectAt(message, "usage");
  json counts = json::object();
  if (usage.empty()) return counts;
  for (const char* key : {"input_tokens", "output_tokens", "cache_creation_input_tokens",
                          "cache_read_input_tokens"}) {
    counts[key] = intFrom(valueAt(usage, key));
  }
  return counts;
}

std::vector<KindAndPayload> assistant(const json& line) {
  const json& message = objectAt(line, "message");
  const std::string model = textAt(message, "model");
  const std::string id = textAt(message, "id");
  std::string text;
  json toolUses = json::array();
  for (const json& block : blocksAt(message, "content")) {
    const std::string type = textAt(block, "type");
    if (type == "text") {
      const std::string piece = textAt(block, "text");
      if (!text.empty() && !piece.empty()) text += '\n';
      text += piece;
    } else if (type == "tool_use") {
      toolUses.push_back(toolUseOf(block));
    }
  }

  std::vector<KindAndPayload> events;
  events.push_back({"assistant",
                    {{"message_id", id},
                     {"model", model},
                     {"text", std::move(text)},
                     {"tool_uses", toolUses},
                     {"usage", usageOf(message)}}});
  for (json& toolUse : toolUses) {
    toolUse["model"] = model;
    toolUse["message_id"] = id;
    events.push_back({"tool_use", std::move(toolUse)});
  }
  return events;
}

std::vector<KindAndPayload> system(const json& line, const std::string& subtype) {
  if (subtype == "init") return {sessionInit(line)};
  for (const char* action : {"request", "response", "auto_approved"}) {
    if (subtype == std::string("permission_") + action) return {permission(line, action)};
  }
  if (subtype == "status") return {systemStatus(line)};
  if (subtype == "compact_boundary") return {compactBoundary(line)};
  return {unknown("system", subtype)};
}

std::vector<KindAndPayload> dispatch(const json& line) {
  const std::string type = textAt(line, "type");
  const std::string subtype = textAt(line, "subtype");
  if (type == "system") return system(line, subtype);
  if (type == "result") return {result(line, subtype)};
  if (type == "tool_use_summary") return {toolUseSummary(line)};
  if (type == "rate_limit_event") return {rateLimit(line)};
  if (type == "user") return user(line);
  if (type == "assistant") return assistant(line);
  return {unknown(type, subtype)};
}

}  // namespace

std::vector<CoworkEvent> parse(const std::shared_ptr<const json>& line, TimePoint now) {
  const std::string timestamp = timestampOf(*line, now);
  const std::string sessionID = sessionIdOf(*line);
  std::vector<CoworkEvent> events;
  for (auto& [kind, payload] : dispatch(*line)) {
    events.push_back({.kind = std::move(kind),
                      .sessionID = sessionID,
                      .timestamp = timestamp,
                      .payload = std::move(payload),
                      .raw = line});
  }
  return events;
}

}  // namespace pelmar::AuditParser
