#include "journal/journal.h"

#include <charconv>
#include <string_view>

#include "platform/files.h"
#include "platform/json.h"

namespace pelmar {
namespace {

constexpr const char* kContinues = "continues";
constexpr const char* kNew = "new";
constexpr const char* kTranscript = "transcript";
constexpr const char* kValues = "values";
constexpr const char* kOffset = "offset";
constexpr const char* kSeenKey = "seen_key";

// FNV-1a, begun with the checksum of the record before: damage and gaps show, no more is needed.
constexpr std::uint64_t kFnvBasis = 0xcbf29ce484222325;
std::uint64_t checksumOf(std::string_view text, std::uint64_t before) {
  std::uint64_t sum = before;
  for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return sum;
}

// Takes the first line, "CHECKSUM RECORD", off `rest`; none when it is damaged.
std::optional<json> takeRecord(std::string_view& rest, std::uint64_t& checksum) {
  const auto feed = rest.find('\n');
  const auto space = rest.find(' ');
  if (feed == rest.npos || space > feed) return std::nullopt;
  const std::string_view text = rest.substr(space + 1, feed - space - 1);
  std::uint64_t written = 0;
  const auto digits = std::from_chars(rest.data(), rest.data() + space, written, 16);
  const auto actual = checksumOf(text, checksum);
  if (digits.ptr != rest.data() + space || written != actual) return std::nullopt;
  auto record = parseJsonObject(text);
  if (!record) return std::nullopt;
  checksum = actual;
  rest.remove_prefix(feed + 1);
  return record;
}

bool isNegative(const json& object) {
  const auto offset = object.find(kOffset);
  return offset != object.end() && exactInteger(*offset).value_or(0) < 0;
}

// Adds what `record` says to `entries`; false when it is of another shape.
bool addEntries(json record, std::vector<JournalEntry>& entries) {
  if (const auto found = record.find(kNew); found != record.end() && found->is_array()) {
    for (const json& transcript : *found) {
      if (!transcript.is_string()) return false;
      entries.push_back({.transcript = transcript, .isNew = true});
    }
    return true;
  }
  const std::string* transcript = stringAt(record, kTranscript);
  const auto values = record.find(kValues);
  if (transcript == nullptr || values == record.end() || !values->is_object()) return false;
  // Never written; taken into the state it would end the process at every start.
  if (isNegative(record) || isNegative(*values)) return false;
  JournalEntry entry{.transcript = *transcript, .values = std::move(*values)};
  if (const auto offset = record.find(kOffset); offset != record.end()) {
    entry.offset = exactInteger(*offset);
  }
  if (const std::string* key = stringAt(record, kSeenKey)) entry.seenKey = *key;
  entries.push_back(std::move(entry));
  return true;
}

// Adds the line of `record` to `text`.
void addRecord(const json& record, std::uint64_t& checksum, std::string& text) {
  const std::string line = compactJson(record);
  checksum = checksumOf(line, checksum);
  char digits[16];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, checksum, 16).ptr);
  text.append(" ").append(line).append("\n");
}

}  // namespace

std::string journalPath(const std::string& cursorPath) {
  return cursorPath.substr(0, cursorPath.rfind(".json")) + "-journal.jsonl";
}

std::vector<JournalEntry> Journal::load() {
  std::vector<JournalEntry> entries;
  const auto text = readFile(journalPath(cursorPath_));
  if (!text) return entries;
  std::string_view rest = *text;
  std::uint64_t checksum = kFnvBasis;
  auto header = takeRecord(rest, checksum);
  if (header && header->contains(kNew)) {
    const bool isGood = addEntries(*std::move(header), entries);
    header = isGood ? takeRecord(rest, checksum) : std::nullopt;
  }
  const std::string* continued = header ? stringAt(*header, kContinues) : nullptr;
  isStale_ = continued == nullptr || *continued != fileIdentity(cursorPath_);
  if (isStale_) return {};
  for (;;) {
    length_ = text->size() - rest.size();
    checksum_ = checksum;
    auto record = takeRecord(rest, checksum);
    if (!record || !addEntries(*std::move(record), entries)) return entries;
  }
}

void Journal::addNew(const std::set<std::string>& transcripts) {
  json unheard = json::array();
  for (const std::string& transcript : transcripts) {
    if (new_.insert(transcript).second) unheard.push_back(transcript);
  }
  if (unheard.empty()) return;
  const json record = {{kNew, std::move(unheard)}};
  if (length_ > 0) {
    headLength_ = 0;
    append(record);
    return;
  }
  // Before the header, which each save of the cursor file outdates.
  std::string text;
  checksum_ = kFnvBasis;
  addRecord(record, checksum_, text);
  headLength_ = text.size();
  headChecksum_ = checksum_;
  addHeader(text);
  write(text);
}

void Journal::begin(const std::string& transcript, const json& values) {
  transcript_ = transcript;
  written_ = json::object();
  offset_.reset();
  takeChanges(values);
}

void Journal::addEvent(const json& values, const std::string& seenKey) {
  addEntry({{kValues, takeChanges(values)}, {kSeenKey, seenKey}});
}

void Journal::addLine(const json& values, std::int64_t offset) {
  offset_ = offset;
  json changes = takeChanges(values);
  if (!changes.empty()) addEntry({{kValues, std::move(changes)}});
}

void Journal::clear(const std::set<std::string>& stillNew) {
  if (headLength_ > 0 && !stillNew.empty()) {
    file_.emplace(journalPath(cursorPath_), headLength_);
    length_ = headLength_;
    checksum_ = headChecksum_;
    std::string text;
    addHeader(text);
    write(text);
    if (headLength_ > 0) return;
  }
  if ((length_ > 0 || isStale_) && !file_) file_.emplace(journalPath(cursorPath_), length_);
  if (file_) file_->cut(0);
  file_.reset();
  length_ = 0;
  headLength_ = 0;
  isStale_ = false;
  new_.clear();
  addNew(stillNew);
}

json Journal::takeChanges(const json& values) {
  json changes = json::object();
  for (const auto& [key, value] : values.items()) {
    if (value.is_structured()) continue;
    const auto written = written_.find(key);
    if (written != written_.end() && *written == value) continue;
    written_[key] = value;
    changes[key] = value;
  }
  return changes;
}

void Journal::addEntry(json entry) {
  entry[kTranscript] = transcript_;
  if (offset_) entry[kOffset] = *offset_;
  offset_.reset();
  append(entry);
}

void Journal::append(const json& record) {
  std::string text;
  if (length_ == 0) {
    checksum_ = kFnvBasis;
    addHeader(text);
  }
  addRecord(record, checksum_, text);
  write(text);
}

void Journal::addHeader(std::string& text) {
  const std::string cursor = fileIdentity(cursorPath_);
  if (cursor.empty()) createFolders(cursorPath_.substr(0, cursorPath_.rfind('/')));
  addRecord({{kContinues, cursor}}, checksum_, text);
}

void Journal::write(const std::string& text) {
  if (!file_) file_.emplace(journalPath(cursorPath_), length_);
  length_ += text.size();
  if (!file_->append(text)) headLength_ = 0;  // what stands there is not known any more
}

}  // namespace pelmar
