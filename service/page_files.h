#pragma once

// PageFiles holds the built page: the few static files of one folder, read once at the start.
// Where the page was not built it answers "/" with a text that says so.

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "service/http_server.h"

namespace pelmar::service {

class PageFiles {
 public:
  // `folder` as scripts/build-page leaves it; empty for no page.
  explicit PageFiles(const std::filesystem::path& folder);

  // None when the request is for none of the page's files.
  std::optional<HttpReply> answer(const HttpRequest& request) const;

 private:
  struct File {
    std::string contentType;
    std::string content;
  };

  std::map<std::string, File, std::less<>> files_;
};

}  // namespace pelmar::service
