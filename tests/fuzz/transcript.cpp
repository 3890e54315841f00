// The bytes of a transcript: split, decoded, parsed, reported. Whatever they are, the offset and
// the steps obey their laws, and pieces make the same requests as the whole.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json.h"
#include "platform/text.h"
#include "tests/fuzz/agent_home.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/slow_text.h"
#include "watcher/line_splitting.h"

namespace pelmar::fuzz {
namespace {

// Lines may be as deep as is allowed, and a body holds a line's values some levels deeper.
constexpr int kBodyDepth = kMaxJsonDepth + 16;

const std::string kRun = std::string(kServiceUrl) + "/api/v1/observe/runs/";

void checkSplitting(std::string_view text) {
  std::string joined;
  std::string repaired;
  const auto partial = splitLinesKeepPartial(text, [&](std::string_view line) {
    require(line.find('\n') == line.npos, "a line holds no line feed");
    joined.append(line) += '\n';
    repaired += repairedUtf8(line) + '\n';
    return true;
  });
  require(partial.find('\n') == partial.npos, "a partial line holds no line feed");
  require(joined.append(partial) == text, "lines and the partial line are the text");
  require(repaired + repairedUtf8(partial) == repairedUtf8(text),
          "lines are decoded by themselves");
}

// The offset behind `text`, all of whose lines were handled, read from 0.
std::int64_t offsetBehind(std::string_view text) {
  const std::string decoded = repairedUtf8(text);
  const auto behindLines = static_cast<std::int64_t>(decoded.rfind('\n') + 1);
  const auto drift =
      static_cast<std::int64_t>(text.size()) - static_cast<std::int64_t>(decoded.size());
  return std::max(std::int64_t{0}, std::min(behindLines, behindLines + drift));
}

// The requests that are made of a transcript, one after the other.
class Requests {
 public:
  // As "<url> <body>" without times of reading.
  std::vector<std::string> check(const std::vector<SentRequest>& requests) {
    std::vector<std::string> texts;
    for (const auto& [url, headers, text] : requests) {
      auto body = parseJsonObject(text, kBodyDepth);
      require(body.has_value(), "a body is a JSON object");
      require(compactJson(*body) == text, "a body parses back to what it was");
      if (url == kRun + "R/steps/") {
        checkStep(*body);
        (*body)["steps"][0]["output"].erase("timestamp");
      } else if (url == kRun + "R/llm-calls/") {
        checkCall(*body);
      } else {
        require(url == kRun + "start/" || url == kRun + "R/complete/", "no other request is made");
      }
      texts.push_back(url + ' ' + compactJson(*body));
    }
    return texts;
  }

 private:
  void checkStep(const json& body) {
    const json& steps = body.at("steps");
    require(steps.is_array() && steps.size() == 1, "a step comes alone");
    const json& step = steps[0];
    require(step.at("position") == position_++, "positions count the steps");
    require(textAt(step, "step_name").starts_with("cowork:"), "a step has a name");
    const json& output = step.at("output");
    for (const char* key : {"kind", "timestamp", "source", "session_id", "hardware_uuid"}) {
      require(stringAt(output, key) != nullptr, "a step's output has its frame");
    }
    const std::string kind = output.at("kind");
    if (kind == "user_message") question_ = output.at("text");
    if (kind == "assistant") answer_ = output.at("text");
    if (kind != "tool_result") return;
    const std::string content = output.at("content");
    require(content == test::slowlyCut(content, 500), "a result is cut to 500 characters");
  }

  void checkCall(const json& body) const {
    const json& call = body.at("calls").at(0);
    for (const char* key : {"tokens_in", "tokens_out"}) {
      require(call.at(key).is_number_integer(), "tokens are counted in integers");
    }
    require(call.at("prompt_preview") == test::slowlyCut(question_, 2000),
            "a call has the last question's first 2000 characters");
    require(call.at("response_preview") == test::slowlyCut(answer_, 2000),
            "a call has the answer's first 2000 characters");
  }

  std::int64_t position_ = 0;
  std::string question_{};
  std::string answer_{};
};

// The requests that are made of a transcript that comes in these pieces.
std::vector<std::string> reported(const std::vector<std::string_view>& pieces) {
  AgentHome& home = agentHome();
  home.writeTranscript("");
  const ScriptedService service(
      [](const HttpRequest&) { return answered(200, R"({"run_id":"R","workflow_id":"W"})"); });
  CursorState state;
  std::string text;
  for (const auto piece : pieces) {
    home.appendToTranscript(piece);
    text += piece;
    home.pass(state, "");
    if (text.empty()) continue;
    const bool isWhole = text.size() == piece.size();
    if (isWhole || isUtf8(text)) {
      require(home.offsetIn(state) == offsetBehind(text), "the offset stands behind the lines");
    }
  }
  return Requests().check(service.requests());
}

void check(std::string_view text) {
  checkSplitting(text);
  const auto whole = reported({text});
  if (!isUtf8(text)) return;
  const auto cut = std::hash<std::string_view>()(text) % (text.size() + 1);
  const auto next = cut + (text.size() - cut) / 2;
  require(reported({text.substr(0, cut), text.substr(cut, next - cut), text.substr(next)}) == whole,
          "pieces make the same requests as the whole");
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    pelmar::fuzz::check(pelmar::fuzz::textOf(data, size));
  } catch (const pelmar::fuzz::EndlessCount&) {
    return 0;
  }
  return 0;
}
