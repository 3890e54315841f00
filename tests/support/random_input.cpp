#include "tests/support/random_input.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

namespace pelmar::test {
namespace {

using nlohmann::json;

constexpr std::array<const char*, 26> kPieces = {"a",
                                                 "B",
                                                 "7",
                                                 " ",
                                                 "\t",
                                                 "\n",
                                                 "\r",
                                                 "\r\n",
                                                 "\"",
                                                 "\\",
                                                 "/",
                                                 "{",
                                                 "é",
                                                 "e\u0301",
                                                 "\u00a0",
                                                 "\u3000",
                                                 "\u2028",
                                                 "\u200d",
                                                 "👩\u200d👧",
                                                 "🇩🇪",
                                                 "🇫",
                                                 "😀",
                                                 "\u0915\u094d\u0937",
                                                 "\u0600",
                                                 "\u1100\u1161",
                                                 "\ufffd"};

constexpr std::array<const char*, 12> kSequences = {
    "\x80", "\xc0\xaf", "\xe2\x82", "\xed\xa0\x80", "\xf0\x9f\x98", "\xf4\x90\x80\x80",
    "\xff", "\xe0",     "\xf1\xbf", "\xc2",         "\xe3\x80",     "\xf0\x80"};

constexpr std::array<const char*, 8> kTypes = {
    "system",          "user", "user", "assistant", "assistant", "result", "tool_use_summary",
    "rate_limit_event"};

constexpr std::array<const char*, 9> kSubtypes = {"init",
                                                  "permission_request",
                                                  "permission_response",
                                                  "permission_auto_approved",
                                                  "status",
                                                  "compact_boundary",
                                                  "success",
                                                  "error_max_turns",
                                                  "a_notice"};

constexpr std::array<const char*, 19> kPlainKeys = {
    "cwd",       "model",          "tool_name",    "decision",   "reason",
    "status",    "message",        "compact_type", "summary",    "duration_ms",
    "num_turns", "total_cost_usd", "tool_use_id",  "is_error",   "resets_at",
    "tools",     "tool_input",     "pre_tokens",   "tokens_used"};

}  // namespace

std::string RandomInput::bytes(std::size_t most) {
  std::string bytes;
  const std::size_t size = below(most + 1);
  while (bytes.size() < size) {
    switch (below(3)) {
      case 0:
        bytes += static_cast<char>(below(256));
        break;
      case 1:
        bytes += oneOf(kSequences);
        break;
      default:
        bytes += oneOf(kPieces);
    }
  }
  return bytes;
}

std::string RandomInput::text(std::size_t most) {
  std::string text;
  const bool isPlain = isOneIn(2);
  for (std::size_t left = below(most + 1); left > 0; --left) {
    text += isPlain && !isOneIn(most) ? "x" : oneOf(kPieces);
  }
  return text;
}

json RandomInput::value(int depth) {
  switch (below(depth > 0 ? 9 : 7)) {
    case 0:
      return nullptr;
    case 1:
      return isOneIn(2);
    case 2:
      return static_cast<std::int64_t>(random_());
    case 3:
      return random_();
    case 4:
      return static_cast<double>(below(1000)) / 8;
    case 5:
    case 6:
      return text(6);
    case 7: {
      json array = json::array();
      for (std::size_t left = below(4); left > 0; --left) array.push_back(value(depth - 1));
      return array;
    }
    default: {
      json object = json::object();
      for (std::size_t left = below(4); left > 0; --left) object[text(3)] = value(depth - 1);
      return object;
    }
  }
}

json RandomInput::content() {
  if (isOneIn(3)) return text(1200);
  if (isOneIn(3)) return value(3);
  json blocks = json::array();
  for (std::size_t left = below(5); left > 0; --left) {
    json block = {{isOneIn(3) ? "content" : "text", text(300)}};
    spoil(block);
    blocks.push_back(std::move(block));
  }
  if (isOneIn(8)) blocks.push_back(value(1));
  return blocks;
}

// Some of the keys hold another value or are gone.
void RandomInput::spoil(json& object) {
  if (!isOneIn(3)) return;
  for (auto it = object.begin(); it != object.end();) {
    if (isOneIn(8)) {
      it = object.erase(it);
      continue;
    }
    if (isOneIn(8)) *it = value(2);
    ++it;
  }
}

json RandomInput::usage() {
  json usage = json::object();
  for (const char* key : {"input_tokens", "output_tokens", "cache_read_input_tokens"}) {
    const std::array<json, 7> counts = {
        0, below(1000), 5.9, "12", "+x", nullptr, std::numeric_limits<std::int64_t>::max()};
    if (!isOneIn(4)) usage[key] = counts[below(counts.size())];
  }
  return usage;
}

json RandomInput::block() {
  const std::array<json, 3> blocks = {
      json{{"type", "text"}, {"text", text(2500)}},
      json{{"type", "tool_use"}, {"id", text(3)}, {"name", "Read"}, {"input", value(3)}},
      json{{"type", "tool_result"},
           {"tool_use_id", text(3)},
           {"is_error", isOneIn(2)},
           {"content", content()}}};
  json block = blocks[below(blocks.size())];
  spoil(block);
  return block;
}

json RandomInput::message() {
  json message = {{"id", text(3)}, {"model", "m"}, {"content", json::array()}};
  if (isOneIn(3)) {
    message["content"] = text(2500);
  } else {
    for (std::size_t left = below(4); left > 0; --left) message["content"].push_back(block());
  }
  spoil(message);
  if (!isOneIn(4))
    message["usage"] = usage();  // never of any value: no count may be beyond 64 bits
  return message;
}

json RandomInput::line() {
  json line = {{"type", oneOf(kTypes)}, {"subtype", oneOf(kSubtypes)}, {"session_id", "S"}};
  for (const char* key : kPlainKeys) {
    if (isOneIn(2)) line[key] = isOneIn(3) ? value(2) : json(text(4));
  }
  if (line["type"] == "user" || line["type"] == "assistant") line["message"] = message();
  spoil(line);
  if (!isOneIn(5)) line["uuid"] = std::to_string(random_());
  line["timestamp"] = std::to_string(below(100));
  return line;
}

std::string RandomInput::transcript(std::size_t lines) {
  std::string transcript;
  for (std::size_t i = 0; i < lines; ++i) {
    switch (below(12)) {
      case 0:
        transcript += " \t\u3000";
        break;
      case 1:
        transcript += "{\"malformed é";
        break;
      case 2:
        transcript += "[\"no object\"]";
        break;
      default:
        transcript += line().dump();
    }
    transcript += isOneIn(6) ? "\r\n" : "\n";
  }
  if (isOneIn(2)) transcript += line().dump();
  return transcript;
}

std::vector<std::string> RandomInput::pieces(const std::string& text, std::size_t most) {
  std::vector<std::size_t> cuts = {0, text.size()};
  for (std::size_t left = below(most + 1); left > 0; --left) cuts.push_back(below(text.size() + 1));
  std::sort(cuts.begin(), cuts.end());
  std::vector<std::string> pieces;
  for (std::size_t i = 1; i < cuts.size(); ++i) {
    pieces.push_back(text.substr(cuts[i - 1], cuts[i] - cuts[i - 1]));
  }
  return pieces;
}

}  // namespace pelmar::test
