#include "watcher/cursor_entry.h"

#include <utility>

#include "platform/json.h"

namespace pelmar {

json CursorEntry::values() const { return parseJson(text_).value_or(json::object()); }

FileState& CursorEntry::open() {
  if (!opened_) opened_.emplace(FileState{.values = values()});
  return *opened_;
}

void CursorEntry::rewrite() {
  if (!opened_) return;
  setText(opened_->values);
  isRewritten_ = true;
  if (!wasRewritten_) opened_.reset();
}

void CursorEntry::endPass() {
  wasRewritten_ = std::exchange(isRewritten_, false);
  if (!wasRewritten_) opened_.reset();
}

void CursorEntry::setText(const json& values) {
  text_ = indentedJsonEscapingSlashes(values);
  text_.shrink_to_fit();  // it is kept for long
  const auto offset = values.find(kOffset);
  offset_ = offset == values.end() ? 0 : exactInteger(*offset).value_or(0);
}

}  // namespace pelmar
