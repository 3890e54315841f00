#pragma once

// What reporting remembers of a transcript, as keys of its per-file state: an open JSON object that
// the watcher keeps, whose other keys are left alone here.

namespace pelmar::runState {

inline constexpr const char* kRunId = "run_id";                         // string or null
inline constexpr const char* kWorkflowId = "workflow_id";               // string or null
inline constexpr const char* kStepPosition = "step_position";           // of the next step
inline constexpr const char* kDailySessionDate = "daily_session_date";  // string or null
inline constexpr const char* kLastUserMessage = "_last_user_message";   // string
inline constexpr const char* kRunCompleted = "run_completed";           // boolean

}  // namespace pelmar::runState
