#include "service/store.h"

#include <array>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

#include "service/schema.h"
#include "service/step_facts.h"

namespace pelmar::service {
namespace {

std::string randomUuid() {
  thread_local std::random_device source;
  const std::uint32_t a = source();
  const std::uint32_t b = (source() & 0xffff0fffU) | 0x00004000U;  // version 4
  const std::uint32_t c = (source() & 0x3fffffffU) | 0x80000000U;  // variant 1
  const std::uint32_t d = source();
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "%08x-%04x-%04x-%04x-%04x%08x", a, b >> 16, b & 0xffffU,
                c >> 16, c & 0xffffU, d);
  return text.data();
}

std::optional<json> firstOf(std::vector<json> rows) {
  if (rows.empty()) return std::nullopt;
  return std::move(rows.front());
}

std::string_view textOf(const json& object, const char* key) {
  const std::string* text = stringAt(object, key);
  return text == nullptr ? std::string_view("") : std::string_view(*text);
}

std::int64_t integerOf(const json& object, const char* key) {
  return exactInteger(object.at(key)).value_or(0);
}

// True also of a file without any table.
bool isOfThisVersion(Database& database) {
  const auto row = firstOf(
      database
          .prepare("SELECT user_version AS version, (SELECT count(*) FROM sqlite_master) AS "
                   "tables FROM pragma_user_version")
          .rows());
  return !row || row->at("version") == kSchemaVersion || row->at("tables") == 0;
}

}  // namespace

std::string utcDay(TimePoint time) { return iso8601Milliseconds(time).substr(0, 10); }

std::unique_ptr<Store> Store::open(const std::filesystem::path& file, std::string& error) {
  Database database(file);
  if (!database.isOpen()) {
    error = database.lastError();
    return nullptr;
  }
  if (!isOfThisVersion(database)) {
    error = "the file holds tables of another version";
    return nullptr;
  }
  if (!database.execute(kSchema) ||
      !database.execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str())) {
    error = database.lastError();
    return nullptr;
  }
  std::unique_ptr<Store> store(new Store(std::move(database)));
  if (store->isPrepared()) return store;
  error = "the file holds tables of another shape";
  return nullptr;
}

Store::Store(Database database)
    : database_(std::move(database)),
      tallies_(database_),
      begin_(database_.prepare("BEGIN IMMEDIATE")),
      savepoint_(database_.prepare("SAVEPOINT request")),
      release_(database_.prepare("RELEASE request")),
      rollbackTo_(database_.prepare("ROLLBACK TO request")),
      commit_(database_.prepare("COMMIT")),
      rollback_(database_.prepare("ROLLBACK")),
      lastRequest_(database_.prepare("SELECT max(id) FROM requests")),
      findRun_(database_.prepare("SELECT id FROM runs WHERE run_id = ?")),
      findDailyRun_(database_.prepare(
          "SELECT * FROM runs WHERE kind = 'daily' AND agent_slug = ? AND date = ?")),
      addRun_(database_.prepare(
          "INSERT INTO runs (run_id, workflow_id, kind, agent_slug, agent_name, workflow_name, "
          "session_id, date, started_at, inputs, metadata) VALUES (?,?,?,?,?,?,?,?,?,?,?)")),
      addStep_(database_.prepare(
          "INSERT INTO steps (run_id, position, step_name, kind, session_id, timestamp, "
          "hardware_uuid, output, received_at) VALUES (?,?,?,?,?,?,?,?,?)")),
      addLlmCall_(database_.prepare(
          "INSERT INTO llm_calls (run_id, model, tokens_in, tokens_out, cost, task, "
          "prompt_preview, response_preview, hardware_uuid, received_at) "
          "VALUES (?,?,?,?,?,?,?,?,?,?)")),
      addCompletion_(database_.prepare(
          "INSERT INTO completions (run_id, status, result, error, steps, received_at) "
          "VALUES (?,?,?,?,?,?)")),
      addHeartbeat_(
          database_.prepare("INSERT INTO heartbeats (agent_slug, source, machine_id, received_at) "
                            "VALUES (?,?,?,?)")),
      addRequest_(database_.prepare(
          "INSERT INTO requests (received_at, method, path, status, body_bytes, answer_bytes, "
          "duration_us, headers, body) VALUES (?,?,?,?,?,?,?,?,?)")) {}

bool Store::isPrepared() const {
  for (const Statement* statement :
       {&begin_, &savepoint_, &release_, &rollbackTo_, &commit_, &rollback_, &lastRequest_,
        &findRun_, &findDailyRun_, &addRun_, &addStep_, &addLlmCall_, &addCompletion_,
        &addHeartbeat_, &addRequest_}) {
    if (!statement->isPrepared()) return false;
  }
  return tallies_.isPrepared();
}

bool Store::begin() {
  if (grouped_ >= kGroupLimit) flush();
  if (!database_.isInTransaction()) {
    if (!begin_.run()) return false;
    grouped_ = 0;
  }
  ++grouped_;
  return savepoint_.run();
}

void Store::rollback() {
  rollbackTo_.run();
  release_.run();
}

void Store::flush() {
  if (database_.isInTransaction() && !commit_.run()) rollback_.run();
}

std::optional<RunRow> Store::findRun(std::string_view runId) {
  const auto row = findRun_.integer({runId});
  if (!row) return std::nullopt;
  return RunRow{runId, *row};
}

// The row that the request under way will get: rows are never deleted.
std::int64_t Store::nextRequest() { return lastRequest_.integer().value_or(0) + 1; }

std::optional<json> Store::findDailyRun(std::string_view agentSlug, std::string_view date) {
  return firstOf(findDailyRun_.rows({agentSlug, date}));
}

bool Store::addRun(json& run, const json& body) {
  run["run_id"] = randomUuid();
  run["workflow_id"] = randomUuid();
  const json inputs = body.value("inputs", json::object());
  const json metadata = body.value("metadata", json::object());
  if (!addRun_.run({textOf(run, "run_id"), textOf(run, "workflow_id"), textOf(run, "kind"),
                    textOf(body, "agent_slug"), textOf(run, "agent_name"),
                    textOf(body, "workflow_name"), textOf(body, "session_id"), textOf(run, "date"),
                    textOf(run, "started_at"), compactJson(inputs), compactJson(metadata)})) {
    return false;
  }
  const std::int64_t row = database_.lastRow();
  return (inputs.empty() ||
          tallies_.addFreeText(row, "run start", "inputs", "other", freeTextBytes(inputs))) &&
         (metadata.empty() ||
          tallies_.addFreeText(row, "run start", "metadata", "other", freeTextBytes(metadata)));
}

bool Store::addDailyRun(const json& body, TimePoint now, json& run) {
  run = {{"kind", "daily"},
         {"agent_name", body.at("agent_type")},
         {"date", utcDay(now)},
         {"started_at", iso8601Milliseconds(now)}};
  return addRun(run, body);
}

bool Store::addSessionRun(const json& body, TimePoint now, json& run) {
  run = {{"kind", "session"},
         {"agent_name", body.at("agent_name")},
         {"date", utcDay(now)},
         {"started_at", iso8601Milliseconds(now)}};
  return addRun(run, body);
}

bool Store::addSteps(const RunRow& run, const json& body, TimePoint now) {
  const std::string receivedAt = iso8601Milliseconds(now);
  StoredStep stored{.run = run.row, .request = nextRequest(), .receivedAt = receivedAt};
  for (const json& step : body.at("steps")) {
    const json& output = step.at("output");
    const std::string text = compactJson(output);
    stored.position = integerOf(step, "position");
    stored.kind = textOf(output, "kind");
    stored.sessionId = textOf(output, "session_id");
    stored.timestamp = textOf(output, "timestamp");
    stored.outputText = text;
    if (!addStep_.run({run.runId, stored.position, textOf(step, "step_name"), stored.kind,
                       stored.sessionId, stored.timestamp, textOf(body, "hardware_uuid"), text,
                       receivedAt}) ||
        !tallies_.addStep(stored, output)) {
      return false;
    }
    ++stored.place;
  }
  return true;
}

bool Store::addLlmCalls(const RunRow& run, const json& body, TimePoint now) {
  const std::string receivedAt = iso8601Milliseconds(now);
  for (const json& call : body.at("calls")) {
    if (!addLlmCall_.run({run.runId, textOf(call, "model"), integerOf(call, "tokens_in"),
                          integerOf(call, "tokens_out"), call.at("cost").get<double>(),
                          textOf(call, "task"), textOf(call, "prompt_preview"),
                          textOf(call, "response_preview"), textOf(body, "hardware_uuid"),
                          receivedAt}) ||
        !tallies_.addLlmCall(run.row, call, receivedAt)) {
      return false;
    }
  }
  return true;
}

bool Store::addCompletion(const RunRow& run, const json& body, TimePoint now) {
  if (!addCompletion_.run({run.runId, textOf(body, "status"), compactJson(body.at("result")),
                           textOf(body, "error"), compactJson(body.at("steps")),
                           iso8601Milliseconds(now)})) {
    return false;
  }
  for (const char* field : {"result", "error", "steps"}) {
    const std::int64_t bytes = freeTextBytes(body.at(field));
    if (bytes > 0 && !tallies_.addFreeText(run.row, "completion", field, "other", bytes))
      return false;
  }
  return true;
}

bool Store::addHeartbeat(std::string_view agentSlug, const json& body, TimePoint now) {
  return addHeartbeat_.run(
      {agentSlug, textOf(body, "source"), textOf(body, "machine_id"), iso8601Milliseconds(now)});
}

bool Store::addRequest(const RequestRecord& request) {
  const std::string receivedAt = iso8601Milliseconds(request.receivedAt);
  const auto bodyBytes = static_cast<std::int64_t>(request.body.size());
  const std::int64_t duration{request.duration.count()};
  return addRequest_.run({receivedAt, request.method, request.target, std::int64_t{request.status},
                          bodyBytes, request.answerBytes, duration, compactJson(request.headers),
                          request.body}) &&
         tallies_.addRequest(receivedAt, request.status, bodyBytes, duration);
}

}  // namespace pelmar::service
