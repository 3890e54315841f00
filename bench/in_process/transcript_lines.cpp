#include "bench/in_process/transcript_lines.h"

#include <algorithm>
#include <filesystem>

#include "platform/files.h"
#include "platform/text.h"
#include "watcher/line_splitting.h"

namespace pelmar {

std::vector<std::string> transcriptsBelow(const std::string& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() == ".jsonl") paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

TranscriptLines::TranscriptLines(const std::string& folder) {
  for (const auto& path : transcriptsBelow(folder)) {
    texts_.push_back(readFile(path).value_or(""));
  }
  for (const auto& text : texts_) {
    splitLinesKeepPartial(text, [this](std::string_view line) {
      if (!trimmedBlanks(line).empty()) lines_.push_back(line);
      return true;
    });
  }
}

}  // namespace pelmar
