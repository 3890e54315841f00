// URL texts: the two ways in which the agent makes one of a configured base.

#include <string>

#include "observe/observe_client.h"
#include "platform/url.h"
#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

constexpr const char* kPath = "api/config/";

void checkEndpoint(const std::string& base) {
  const std::string url = endpointUrl(base, "/path");
  require(url.ends_with("/path"), "the path stands at the end");
  const std::string front = url.substr(0, url.size() - 5);
  require(!front.starts_with('/') && !front.ends_with('/'), "one slash joins the two");
  require(base.find(front) != base.npos, "the rest of the base stays");
}

void checkBelow(const std::string& base, const std::string& value) {
  const auto url = urlBelow(base, kPath, "key", value);
  if (!url) return;
  require(isHttpUrl(base), "only an http URL has others below it");
  require(isHttpUrl(*url) && isUrl(*url), "what is made of one is an http URL");
  const auto query = url->find(std::string("/") + kPath + "?key=");
  require(query != url->npos, "the path and the query stand in it");
  require(query == 0 || (*url)[query - 1] != '/', "one slash joins the two");
  require(url->find('?') > query, "the query is the only one");
  const auto fragment = base.find('#');
  if (fragment != base.npos) require(url->ends_with(base.substr(fragment)), "the fragment stays");
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = pelmar::fuzz::partsOf(pelmar::fuzz::textOf(data, size));
  const std::string text(parts.front());
  pelmar::isUrl(text);
  pelmar::isHttpUrl(text);
  pelmar::fuzz::checkEndpoint(text);
  pelmar::fuzz::checkBelow(text, std::string(parts.back()));
  return 0;
}
