#pragma once

// The tables of the local service's database, made when they are missing. The columns are
// documented in docs/local-service.md. "JSON TEXT" marks JSON text, see kJsonColumnType.

#include <cstdint>

namespace pelmar::service {

inline constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS runs (
  id INTEGER PRIMARY KEY,
  run_id TEXT NOT NULL UNIQUE,
  workflow_id TEXT NOT NULL,
  kind TEXT NOT NULL,
  agent_slug TEXT NOT NULL,
  agent_name TEXT NOT NULL,
  workflow_name TEXT NOT NULL,
  session_id TEXT NOT NULL,
  date TEXT NOT NULL,
  started_at TEXT NOT NULL,
  inputs JSON TEXT NOT NULL,
  metadata JSON TEXT NOT NULL
);
CREATE UNIQUE INDEX IF NOT EXISTS daily_run ON runs (agent_slug, date) WHERE kind = 'daily';

CREATE TABLE IF NOT EXISTS steps (
  id INTEGER PRIMARY KEY,
  run_id TEXT NOT NULL,
  position INTEGER NOT NULL,
  step_name TEXT NOT NULL,
  kind TEXT NOT NULL,
  session_id TEXT NOT NULL,
  timestamp TEXT NOT NULL,
  hardware_uuid TEXT NOT NULL,
  output JSON TEXT NOT NULL,
  received_at TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS steps_of_run ON steps (run_id);
CREATE INDEX IF NOT EXISTS steps_of_name_and_kind ON steps (step_name, kind);
CREATE INDEX IF NOT EXISTS steps_of_session ON steps (session_id);

CREATE TABLE IF NOT EXISTS llm_calls (
  id INTEGER PRIMARY KEY,
  run_id TEXT NOT NULL,
  model TEXT NOT NULL,
  tokens_in INTEGER NOT NULL,
  tokens_out INTEGER NOT NULL,
  cost REAL NOT NULL,
  task TEXT NOT NULL,
  prompt_preview TEXT NOT NULL,
  response_preview TEXT NOT NULL,
  hardware_uuid TEXT NOT NULL,
  received_at TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS llm_calls_of_run ON llm_calls (run_id);

CREATE TABLE IF NOT EXISTS completions (
  id INTEGER PRIMARY KEY,
  run_id TEXT NOT NULL,
  status TEXT NOT NULL,
  result JSON TEXT NOT NULL,
  error TEXT NOT NULL,
  steps JSON TEXT NOT NULL,
  received_at TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS completions_of_run ON completions (run_id);

CREATE TABLE IF NOT EXISTS heartbeats (
  id INTEGER PRIMARY KEY,
  agent_slug TEXT NOT NULL,
  source TEXT NOT NULL,
  machine_id TEXT NOT NULL,
  received_at TEXT NOT NULL
);

CREATE TABLE IF NOT EXISTS requests (
  id INTEGER PRIMARY KEY,
  received_at TEXT NOT NULL,
  method TEXT NOT NULL,
  path TEXT NOT NULL,
  status INTEGER NOT NULL,
  body_bytes INTEGER NOT NULL,
  answer_bytes INTEGER NOT NULL,
  duration_us INTEGER NOT NULL,
  headers JSON TEXT NOT NULL,
  body TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS requests_by_path ON requests (path, body_bytes);
CREATE INDEX IF NOT EXISTS heartbeats_of_agent ON heartbeats (agent_slug);

-- What follows repeats the above in a form that is quick to ask, kept up with every request.

CREATE TABLE IF NOT EXISTS step_facts (
  id INTEGER PRIMARY KEY,
  run INTEGER NOT NULL,
  request INTEGER NOT NULL,
  place INTEGER NOT NULL,
  position INTEGER NOT NULL,
  turn INTEGER NOT NULL,
  is_error INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  digest INTEGER NOT NULL,
  tokens_in INTEGER,
  tokens_out INTEGER,
  kind TEXT NOT NULL,
  session_id TEXT NOT NULL,
  timestamp TEXT NOT NULL,
  tool_name TEXT NOT NULL,
  tool_use_id TEXT NOT NULL,
  preview TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS facts_of_run ON step_facts (run);
CREATE INDEX IF NOT EXISTS facts_of_kind ON step_facts (run, kind);
CREATE INDEX IF NOT EXISTS facts_of_session ON step_facts (run, session_id);
CREATE INDEX IF NOT EXISTS facts_of_tool_use ON step_facts (tool_use_id) WHERE tool_use_id <> '';

CREATE TABLE IF NOT EXISTS run_totals (
  run INTEGER PRIMARY KEY,
  steps INTEGER NOT NULL,
  errors INTEGER NOT NULL,
  llm_calls INTEGER NOT NULL,
  tokens_in INTEGER NOT NULL,
  tokens_out INTEGER NOT NULL,
  first_event TEXT,
  last_event TEXT
);

CREATE TABLE IF NOT EXISTS free_text (
  run INTEGER NOT NULL,
  kind TEXT NOT NULL,
  field TEXT NOT NULL,
  category TEXT NOT NULL,
  count INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  PRIMARY KEY (run, kind, field)
) WITHOUT ROWID;

CREATE TABLE IF NOT EXISTS minutes (
  minute TEXT NOT NULL,
  measure TEXT NOT NULL,
  name TEXT NOT NULL,
  count INTEGER NOT NULL,
  first_sum INTEGER NOT NULL,
  second_sum INTEGER NOT NULL,
  peak INTEGER NOT NULL,
  PRIMARY KEY (minute, measure, name)
) WITHOUT ROWID;
)sql";

// Raised when the tables change: a database of another version is refused, not misread.
inline constexpr std::int64_t kSchemaVersion = 1;

}  // namespace pelmar::service
