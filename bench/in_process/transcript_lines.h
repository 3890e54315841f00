#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pelmar {

// The paths of the transcripts (*.jsonl) below `folder`, sorted.
std::vector<std::string> transcriptsBelow(const std::string& folder);

// The non-blank lines of the transcripts below `folder`, held in memory.
class TranscriptLines {
 public:
  explicit TranscriptLines(const std::string& folder);
  TranscriptLines(const TranscriptLines&) = delete;
  TranscriptLines& operator=(const TranscriptLines&) = delete;

  const std::vector<std::string_view>& all() const { return lines_; }

 private:
  std::vector<std::string> texts_;
  std::vector<std::string_view> lines_;  // into the texts
};

}  // namespace pelmar
