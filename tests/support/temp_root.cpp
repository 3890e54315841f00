#include "tests/support/temp_root.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace pelmar::test {
namespace {

void write(const std::string& path, const std::string& content, std::ios::openmode mode) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream file(path, std::ios::binary | mode);
  file << content;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

}  // namespace

TempRoot::TempRoot() {
  std::string name = std::filesystem::temp_directory_path() / "pelmar-test-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  path_ = std::filesystem::canonical(name);
  std::filesystem::create_directories(home());
  ::setenv("PELMAR_ROOT", path_.c_str(), 1);
}

TempRoot::~TempRoot() {
  ::unsetenv("PELMAR_ROOT");
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void TempRoot::addSession(const std::string& id) const {
  writeFile(sessionRecords() + "/account/local_" + id + ".json",
            R"({"cliSessionId":")" + id + "\"}");
}

std::string TempRoot::addTranscript(const std::string& id, const std::string& content) const {
  addSession(id);
  std::string path = projects() + "/some-project/" + id + ".jsonl";
  writeFile(path, content);
  return path;
}

void writeFile(const std::string& path, const std::string& content) {
  write(path, content, std::ios::trunc);
}

void appendToFile(const std::string& path, const std::string& content) {
  write(path, content, std::ios::app);
}

std::string contentOf(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void makeExecutable(const std::string& path) {
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

int permissionsOf(const std::string& path) {
  return static_cast<int>(std::filesystem::status(path).permissions());
}

}  // namespace pelmar::test
