#pragma once

// The tables of the local service's database, made when they are missing. The columns are
// documented in docs/local-service.md. "JSON TEXT" marks JSON text, see kJsonColumnType.

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
)sql";

}  // namespace pelmar::service
