#include "service/page_files.h"

#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "service/access.h"

namespace pelmar::service {
namespace {

struct PageFile {
  const char* path;
  const char* name;
  const char* contentType;
};

constexpr PageFile kPageFiles[] = {
    {"/", "index.html", "text/html; charset=utf-8"},
    {"/page.js", "page.js", "text/javascript; charset=utf-8"},
    {"/page.css", "page.css", "text/css; charset=utf-8"},
    {"/icon.svg", "icon.svg", "image/svg+xml"},
};

// What scripts/build-page writes when it cannot build.
constexpr const char* kReasonFile = "not-built.txt";

std::optional<std::string> contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

PageFiles::PageFiles(const std::filesystem::path& folder) {
  for (const PageFile& file : kPageFiles) {
    auto content = folder.empty() ? std::nullopt : contentOf(folder / file.name);
    if (content) files_[file.path] = {file.contentType, *std::move(content)};
  }
  if (files_.count("/") > 0) return;
  const auto reason = folder.empty() ? std::nullopt : contentOf(folder / kReasonFile);
  files_["/"] = {"text/plain; charset=utf-8",
                 "The service runs, but its page was not built: " +
                     reason.value_or("no built page was named (--page FOLDER).\n") +
                     "What was received can be queried: docs/local-service.md says how.\n"};
}

std::optional<HttpReply> PageFiles::answer(const HttpRequest& request) const {
  if (request.method != "GET") return std::nullopt;
  const auto found = files_.find(request.path);
  if (found == files_.end()) return std::nullopt;
  return HttpReply{.body = found->second.content,
                   .contentType = found->second.contentType,
                   .headers = protectiveHeaders()};
}

}  // namespace pelmar::service
