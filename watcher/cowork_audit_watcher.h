#pragma once

// The one long-lived object of the agent. Single-threaded: all of its work, network included, is
// done on the thread that calls `run`.

#include <string>

#include "watcher/cursor_file.h"

namespace pelmar {

class CoworkAuditWatcher final {
 public:
  // Touches no file. `pollInterval` is the pause between passes in seconds; `fromStart` reports
  // transcripts that the cursor does not know from their beginning; `verbose` writes a debug
  // message a pass.
  CoworkAuditWatcher(double pollInterval, bool fromStart, bool verbose);

  // Watches for ever. Returns only when there is no profile, which it logs.
  void run() const;

 private:
  double pollInterval_;
  bool fromStart_;
  bool verbose_;
  CursorFile cursorFile_;
};

// Whether a heartbeat is to be sent at `now`; both in seconds since 1970.
bool isHeartbeatDue(double now, double lastHeartbeat);

}  // namespace pelmar
