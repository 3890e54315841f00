#include "service/request_checks.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

namespace pelmar::service {
namespace {

enum class Type { Text, FilledText, Integer, Number, Object, Array, Any };

struct Field {
  const char* name;
  Type type;
  bool isRequired = true;
};

using Fields = std::initializer_list<Field>;

bool hasType(const json& value, Type type) {
  switch (type) {
    case Type::Text:
      return value.is_string();
    case Type::FilledText:
      return value.is_string() && !value.get_ref<const std::string&>().empty();
    case Type::Integer:
      return value.is_number_integer() && exactInteger(value).has_value();
    case Type::Number:
      return value.is_number();
    case Type::Object:
      return value.is_object();
    case Type::Array:
      return value.is_array();
    case Type::Any:
      break;
  }
  return true;
}

const char* wanted(Type type) {
  switch (type) {
    case Type::Text:
      return "must be a string";
    case Type::FilledText:
      return "must be a string that is not empty";
    case Type::Integer:
      return "must be an integer";
    case Type::Number:
      return "must be a number";
    case Type::Object:
      return "must be an object";
    case Type::Array:
      return "must be an array";
    case Type::Any:
      break;
  }
  return "is missing";
}

std::string pathOf(std::string_view prefix, std::string_view name) {
  return prefix.empty() ? std::string(name) : std::string(prefix) + "." + std::string(name);
}

std::optional<BodyFault> checkPresent(const json& object, Fields fields, std::string_view prefix) {
  for (const Field& field : fields) {
    const auto found = object.find(field.name);
    if (found == object.end()) {
      if (field.isRequired) return BodyFault{"is missing", pathOf(prefix, field.name)};
    } else if (!hasType(*found, field.type)) {
      return BodyFault{wanted(field.type), pathOf(prefix, field.name)};
    }
  }
  return std::nullopt;
}

// As checkPresent, and no other key may be there.
std::optional<BodyFault> checkExact(const json& object, Fields fields, std::string_view prefix) {
  if (!object.is_object()) return BodyFault{wanted(Type::Object), std::string(prefix)};
  if (auto fault = checkPresent(object, fields, prefix)) return fault;
  for (const auto& item : object.items()) {
    const bool isKnown = std::any_of(fields.begin(), fields.end(),
                                     [&](const Field& field) { return item.key() == field.name; });
    if (!isKnown) return BodyFault{"holds a key that does not belong there", std::string(prefix)};
  }
  return std::nullopt;
}

std::string elementPath(const char* list, std::size_t index) {
  return std::string(list) + "[" + std::to_string(index) + "]";
}

}  // namespace

std::optional<BodyFault> checkRunStart(const json& body) {
  return checkExact(body,
                    {{"agent_name", Type::Text},
                     {"workflow_name", Type::Text},
                     {"inputs", Type::Object},
                     {"metadata", Type::Object},
                     {"session_id", Type::FilledText, false},
                     {"agent_slug", Type::FilledText, false}},
                    "");
}

std::optional<BodyFault> checkDailyRun(const json& body) {
  return checkExact(body, {{"agent_slug", Type::Text}, {"agent_type", Type::Text}}, "");
}

std::optional<BodyFault> checkSteps(const json& body) {
  if (auto fault = checkExact(body, {{"steps", Type::Array}, {"hardware_uuid", Type::Text}}, "")) {
    return fault;
  }
  const json& steps = body["steps"];
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const std::string path = elementPath("steps", i);
    if (auto fault = checkExact(
            steps[i],
            {{"step_name", Type::Text}, {"position", Type::Integer}, {"output", Type::Object}},
            path)) {
      return fault;
    }
    // An event's own values may replace these, with any type, and add others.
    if (auto fault = checkPresent(steps[i]["output"],
                                  {{"kind", Type::Any},
                                   {"timestamp", Type::Any},
                                   {"source", Type::Any},
                                   {"session_id", Type::Any},
                                   {"hardware_uuid", Type::Any}},
                                  pathOf(path, "output"))) {
      return fault;
    }
  }
  return std::nullopt;
}

std::optional<BodyFault> checkLlmCalls(const json& body) {
  if (auto fault = checkExact(body, {{"calls", Type::Array}, {"hardware_uuid", Type::Text}}, "")) {
    return fault;
  }
  const json& calls = body["calls"];
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if (auto fault = checkExact(calls[i],
                                {{"model", Type::Text},
                                 {"tokens_in", Type::Integer},
                                 {"tokens_out", Type::Integer},
                                 {"cost", Type::Number},
                                 {"task", Type::Text},
                                 {"prompt_preview", Type::Text},
                                 {"response_preview", Type::Text}},
                                elementPath("calls", i))) {
      return fault;
    }
  }
  return std::nullopt;
}

std::optional<BodyFault> checkCompletion(const json& body) {
  return checkExact(body,
                    {{"status", Type::Text},
                     {"result", Type::Object},
                     {"error", Type::Text},
                     {"steps", Type::Array}},
                    "");
}

std::optional<BodyFault> checkHeartbeat(const json& body) {
  return checkExact(body, {{"source", Type::Text}, {"machine_id", Type::Text}}, "");
}

}  // namespace pelmar::service
