#pragma once

// What is remembered of one transcript: its text as it stands in the cursor file, which is all that
// a save and a pass without news need, and, only while the transcript grows, what that text says.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "audit/line_processing.h"

namespace pelmar {

class CursorEntry {
 public:
  static constexpr const char* kOffset = "offset";  // bytes read so far

  // An empty object.
  CursorEntry() = default;

  // `values` is an object.
  explicit CursorEntry(const nlohmann::json& values) { setText(values); }

  const std::string& text() const { return text_; }

  // 0 when the key is missing or holds no exact integer.
  std::int64_t offset() const { return offset_; }

  // What the text says. Each call parses it.
  nlohmann::json values() const;

  // The same, to be changed. Holds until rewrite() or endPass(); what was changed counts from
  // rewrite() on.
  FileState& open();
  void rewrite();

  // To be called when a pass over all transcripts ends. What a transcript opened stays open as long
  // as it is rewritten in one pass after the other: a long session is not parsed anew each time,
  // and transcripts that grow once are not held all together.
  void endPass();

 private:
  void setText(const nlohmann::json& values);

  std::string text_ = "{}";
  std::int64_t offset_ = 0;
  std::optional<FileState> opened_{};
  bool isRewritten_ = false;   // in this pass
  bool wasRewritten_ = false;  // in the one before
};

}  // namespace pelmar
