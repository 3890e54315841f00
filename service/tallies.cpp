#include "service/tallies.h"

#include <string>
#include <vector>

#include "service/step_facts.h"

namespace pelmar::service {
namespace {

constexpr std::size_t kMinuteLength = 16;  // 2026-01-31T23:59

}  // namespace

Tallies::Tallies(Database& database)
    : addFacts_(database.prepare(
          "INSERT INTO step_facts (id, run, request, place, position, turn, is_error, bytes, "
          "digest, kind, session_id, timestamp, tool_name, tool_use_id, preview) "
          "VALUES (last_insert_rowid(),?,?,?,?,?,?,?,?,?,?,?,?,?,substr(?,1,160))")),
      findTurn_(database.prepare("SELECT turn FROM step_facts WHERE run = ? AND session_id = ? "
                                 "ORDER BY id DESC LIMIT 1")),
      findLastTurn_(
          database.prepare("SELECT turn FROM step_facts WHERE run = ? ORDER BY id DESC LIMIT 1")),
      findTool_(database.prepare("SELECT tool_name FROM step_facts WHERE tool_use_id = ?1 AND "
                                 "tool_use_id <> '' AND tool_name <> '' LIMIT 1")),
      addRunTotals_(database.prepare(
          "INSERT INTO run_totals (run, steps, errors, llm_calls, tokens_in, tokens_out, "
          "first_event, last_event) VALUES (?1,?2,?3,?4,?5,?6,nullif(?7,''),nullif(?7,'')) "
          "ON CONFLICT DO UPDATE SET steps = steps + ?2, errors = errors + ?3, "
          "llm_calls = llm_calls + ?4, tokens_in = tokens_in + ?5, tokens_out = tokens_out + ?6, "
          "first_event = min(coalesce(first_event, excluded.first_event), "
          "coalesce(excluded.first_event, first_event)), "
          "last_event = max(coalesce(last_event, excluded.last_event), "
          "coalesce(excluded.last_event, last_event))")),
      // An agent sends a call right behind the assistant's step that it belongs to.
      addCallToStep_(database.prepare(
          "UPDATE step_facts SET tokens_in = coalesce(tokens_in, 0) + ?2, "
          "tokens_out = coalesce(tokens_out, 0) + ?3 WHERE id = "
          "(SELECT max(id) FROM step_facts WHERE run = ?1 AND kind = 'assistant')")),
      addFreeText_(
          database.prepare("INSERT INTO free_text (run, kind, field, category, count, bytes) "
                           "VALUES (?,?,?,?,1,?) ON CONFLICT DO UPDATE SET count = count + 1, "
                           "bytes = bytes + excluded.bytes")),
      addMinute_(database.prepare(
          "INSERT INTO minutes (minute, measure, name, count, first_sum, second_sum, peak) "
          "VALUES (?1,?2,?3,1,?4,?5,?4) ON CONFLICT DO UPDATE SET count = count + 1, "
          "first_sum = first_sum + ?4, second_sum = second_sum + ?5, peak = max(peak, ?4)")) {}

bool Tallies::isPrepared() const {
  for (const Statement* statement : {&addFacts_, &findTurn_, &findLastTurn_, &findTool_,
                                     &addRunTotals_, &addCallToStep_, &addFreeText_, &addMinute_}) {
    if (!statement->isPrepared()) return false;
  }
  return true;
}

bool Tallies::addStep(const StoredStep& step, const json& output) {
  StepFacts facts = factsOf(step.kind, output);
  if (facts.toolName.empty()) facts.toolName = toolOf(facts.toolUseId);
  if (!addFacts_.run({step.run, step.request, step.place, step.position, turnOf(step),
                      std::int64_t{facts.isError},
                      static_cast<std::int64_t>(step.outputText.size()), digestOf(step.outputText),
                      step.kind, step.sessionId, step.timestamp, facts.toolName, facts.toolUseId,
                      facts.preview})) {
    return false;
  }
  for (const FreeText& text : facts.freeText) {
    if (!addFreeText(step.run, step.kind, text.field, text.category, text.bytes)) return false;
  }
  const std::int64_t none = 0;
  return addRunTotals_.run({step.run, std::int64_t{1}, std::int64_t{facts.isError}, none, none,
                            none, step.timestamp}) &&
         addMinute(step.receivedAt, "event", step.kind, 0, 0);
}

bool Tallies::addLlmCall(std::int64_t run, const json& call, std::string_view receivedAt) {
  const std::int64_t tokensIn = exactInteger(call.at("tokens_in")).value_or(0);
  const std::int64_t tokensOut = exactInteger(call.at("tokens_out")).value_or(0);
  const auto addPreview = [&](const char* field, std::string_view category) {
    const std::int64_t bytes = freeTextBytes(call.at(field));
    return bytes == 0 || addFreeText(run, "LLM call", field, category, bytes);
  };
  const std::int64_t none = 0;
  return addPreview("prompt_preview", "user text") &&
         addPreview("response_preview", "model text") &&
         addRunTotals_.run(
             {run, none, none, std::int64_t{1}, tokensIn, tokensOut, std::string_view()}) &&
         addCallToStep_.run({run, tokensIn, tokensOut}) &&
         addMinute(receivedAt, "tokens", textAt(call, "model"), tokensIn, tokensOut);
}

bool Tallies::addFreeText(std::int64_t run, std::string_view kind, std::string_view field,
                          std::string_view category, std::int64_t bytes) {
  return addFreeText_.run({run, kind, field, category, bytes});
}

bool Tallies::addRequest(std::string_view receivedAt, int status, std::int64_t bytes,
                         std::int64_t microseconds) {
  return addMinute(receivedAt, "request", std::to_string(status), microseconds, bytes);
}

bool Tallies::addMinute(std::string_view time, std::string_view measure, std::string_view name,
                        std::int64_t first, std::int64_t second) {
  return addMinute_.run({time.substr(0, kMinuteLength), measure, name, first, second});
}

std::string Tallies::toolOf(std::string_view toolUseId) {
  if (toolUseId.empty()) return {};
  const std::vector<json> rows = findTool_.rows({toolUseId});
  return rows.empty() ? std::string() : textAt(rows.front(), "tool_name");
}

std::int64_t Tallies::turnOf(const StoredStep& step) {
  // A line without a session id belongs to the turn around it.
  const auto last = step.sessionId.empty() ? findLastTurn_.integer({step.run})
                                           : findTurn_.integer({step.run, step.sessionId});
  return last.value_or(0) + (step.kind == "user_message" ? 1 : 0);
}

}  // namespace pelmar::service
