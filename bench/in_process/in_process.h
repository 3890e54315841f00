#pragma once

// The benchmarks of parts that can be measured without a process of the agent. Each registers the
// agent's way and its floor under the names "<topic>/agent" and "<topic>/floor".

#include <cstddef>
#include <string>

namespace pelmar {

// From the transcripts below `folder` to their events; the floor parses the same lines as JSON.
void registerReading(const std::string& folder);

// Lines of the transcripts below `folder` whose events are all in a full list of seen keys; the
// floor has no such list.
void registerSkip(const std::string& folder);

// Saving the state of `transcripts` transcripts with 2,500 keys each to a file in `folder`; the
// floor writes the same bytes.
void registerCursorSave(const std::string& folder, std::size_t transcripts);

}  // namespace pelmar
