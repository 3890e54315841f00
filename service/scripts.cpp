#include "service/scripts.h"

#include <algorithm>
#include <utility>

namespace pelmar::service {
namespace {

Script endingWith(Ending ending) { return {.reply = {.ending = ending}}; }

bool matches(std::string_view pattern, std::string_view path) {
  if (pattern.empty() || pattern.back() != '*') return pattern == path;
  pattern.remove_suffix(1);
  return path.substr(0, pattern.size()) == pattern;
}

}  // namespace

Script answerWith(int status, std::string body) {
  return {.reply = {.status = status, .body = std::move(body)}};
}

Script redirectTo(std::string location, int status) {
  return {.reply = {.status = status, .body = "{}", .location = std::move(location)}};
}

Script answerLate(std::chrono::milliseconds delay) {
  return {.isProcessed = true, .reply = {.delay = delay}};
}

Script answerHalf(std::string body) {
  return {.reply = {.body = std::move(body), .ending = Ending::HalfAnswer}};
}

Script answerRaw(std::string bytes) {
  return {.reply = {.body = std::move(bytes), .ending = Ending::RawBytes}};
}

Script dropBeforeBody() { return {.isBodyRead = false, .reply = {.ending = Ending::Drop}}; }

Script dropAfterRequest() { return endingWith(Ending::Drop); }

Script storeAndDrop() { return {.isProcessed = true, .reply = {.ending = Ending::Drop}}; }

Script neverAnswer() { return endingWith(Ending::NoAnswer); }

void ScriptBook::add(std::string pattern, Script script, std::optional<int> times) {
  entries_.push_back({std::move(pattern), std::move(script), times});
}

std::optional<Script> ScriptBook::take(std::string_view path) {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.timesLeft.value_or(1) > 0 && matches(entry.pattern, path);
  });
  if (found == entries_.end()) return std::nullopt;
  if (found->timesLeft) --*found->timesLeft;
  return found->script;
}

}  // namespace pelmar::service
