#pragma once

// A folder of a test's own, below which the rooted build finds home, setup files and tools: sets
// PELMAR_ROOT for its lifetime and is deleted with all its contents at the end.

#include <string>

namespace pelmar::test {

class TempRoot {
 public:
  TempRoot();
  ~TempRoot();
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::string& path() const { return path_; }
  std::string home() const { return path_ + "/home"; }
  std::string setup() const { return path_ + "/private/tmp/dev.pelmar.setup"; }
  std::string ioreg() const { return path_ + "/usr/sbin/ioreg"; }
  std::string projects() const { return home() + "/.claude/projects"; }
  std::string sessionRecords() const {
    return home() + "/Library/Application Support/Claude/claude-code-sessions";
  }
  std::string cursor() const { return home() + "/.pelmar/cowork-cursor.json"; }
  std::string activityLog() const { return home() + "/.pelmar/logs/cowork-watcher.activity.jsonl"; }

  // A session record that makes <id>.jsonl a transcript to watch.
  void addSession(const std::string& id) const;

  // Adds a session record for `id` and writes its transcript; the transcript's path.
  std::string addTranscript(const std::string& id, const std::string& content) const;

 private:
  std::string path_;
};

// Creates the folders above `path`; these throw when the file system refuses.
void writeFile(const std::string& path, const std::string& content);
void appendToFile(const std::string& path, const std::string& content);
std::string contentOf(const std::string& path);

void makeExecutable(const std::string& path);

// The permission bits of what stands at `path`, such as 0600.
int permissionsOf(const std::string& path);

}  // namespace pelmar::test
