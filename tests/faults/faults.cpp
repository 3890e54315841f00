#include "tests/faults/faults.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

#include "tests/faults/next.h"

namespace pelmar::test {
namespace {

constexpr int kMostCallsOfAPass = 20000;
constexpr int kSpinning = 99;

int numberIn(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// What stands before the next `separator`, which is taken off `rest` with it.
std::string_view take(std::string_view& rest, char separator) {
  const auto end = rest.find(separator);
  const auto word = rest.substr(0, end);
  rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
  return word;
}

const char* variable(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value == nullptr ? "" : value;
}

}  // namespace

void FaultPlan::replace(std::string_view text) {
  faults_.clear();
  counts_.clear();
  while (!text.empty()) {
    auto entry = take(text, ',');
    const auto call = take(entry, ':');
    const auto error = take(entry, ':');
    faults_.push_back({.call = std::string(call),
                       .error = numberIn(error),
                       .first = numberIn(entry),
                       .isLasting = entry.ends_with('+')});
  }
}

std::optional<int> FaultPlan::next(std::string_view call) {
  auto count = std::find_if(counts_.begin(), counts_.end(),
                            [call](const Count& known) { return known.call == call; });
  if (count == counts_.end()) {
    count = counts_.insert(counts_.end(), Count{.call = std::string(call)});
  }
  lastNumber_ = ++count->calls;
  for (const Fault& fault : faults_) {
    const bool isReached =
        fault.isLasting ? lastNumber_ >= fault.first : lastNumber_ == fault.first;
    if (fault.call == call && isReached) return fault.error;
  }
  return std::nullopt;
}

std::string FaultPlan::counts() const {
  std::string text;
  for (const auto& [call, calls] : counts_) text += " " + call + "=" + std::to_string(calls);
  return text;
}

Lockstep::Lockstep() {
  plan_.replace(variable("PELMAR_FAULTS"));
  std::string_view descriptors = variable("PELMAR_LOCKSTEP");
  if (descriptors.empty()) return;
  status_ = numberIn(take(descriptors, ','));
  commands_ = numberIn(descriptors);
}

std::optional<int> Lockstep::faultOf(std::string_view call, const std::string& where) {
  if (++calls_ > kMostCallsOfAPass && isOn()) {
    tell("spins " + std::string(call));
    ::_exit(kSpinning);
  }
  const auto fault = plan_.next(call);
  if (fault) {
    tell("fault " + std::string(call) + " " + std::to_string(plan_.lastNumber()) + " " + where);
  }
  return fault;
}

void Lockstep::pass() {
  tell("pass " + std::to_string(calls_));
  calls_ = 0;
  for (std::string line = command(); line != "go"; line = command()) {
    constexpr std::string_view kFaults = "faults ";
    if (line.empty()) ::_exit(0);  // the testing program has gone
    if (line == "counts") tell(line + plan_.counts());
    if (line.starts_with(kFaults)) plan_.replace(std::string_view(line).substr(kFaults.size()));
  }
}

void Lockstep::tell(std::string line) const {
  if (!isOn()) return;
  line += '\n';
  static_cast<void>(!nextFunction(&::write, "write")(status_, line.data(), line.size()));
}

std::string Lockstep::command() const {
  std::string line;
  for (char c = 0; nextFunction(&::read, "read")(commands_, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

Lockstep& lockstep() {
  static auto& instance = *new Lockstep;
  return instance;
}

}  // namespace pelmar::test
