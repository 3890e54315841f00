#pragma once

// One look at every transcript. Nothing that goes wrong leaves the pass: each problem costs its own
// file or line. The only way out is the end of the process by a negative stored offset.

#include <string>

#include "journal/journal.h"
#include "observe/observe_client.h"
#include "watcher/cursor_file.h"

namespace pelmar {

// Brings `state` up to what the journal says was recorded since the cursor file was saved. Only for
// the state of a cursor file that could be loaded, or of none.
void resume(CursorState& state, Journal& journal);

// Reads what was appended to each transcript, reports its complete lines and moves its offset
// behind those that were handled; a line that could not be reported, and all behind it, waits for
// the next pass. Each event goes into the journal; the cursor is saved after each transcript that
// was read, and empties it. Blocks for the requests that it makes.
void pollOnce(CursorState& state, const CursorFile& cursorFile, Journal& journal,
              const ObserveClient& client, const std::string& agentSlug, bool verbose);

// Gives every transcript that `state` does not know an offset at its present end, so that only what
// is written later is reported, and saves the cursor when there was one.
void seedCursorToEOF(CursorState& state, const CursorFile& cursorFile, Journal& journal);

}  // namespace pelmar
