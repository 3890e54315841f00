#include "platform/url.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace pelmar {
namespace {

struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, FreeUrl>;

struct FreeText {
  void operator()(char* text) const { curl_free(text); }
};

Url parsed(const std::string& text) {
  Url url(curl_url());
  if (url &&
      curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) == CURLUE_OK) {
    return url;
  }
  return nullptr;
}

std::string part(const Url& url, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(url.get(), which, &text, 0) != CURLUE_OK) return {};
  const std::unique_ptr<char, FreeText> owner(text);
  return text;
}

std::string percentEncoded(const std::string& text) {
  const std::unique_ptr<char, FreeText> owner(
      curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())));
  return owner ? owner.get() : std::string();
}

bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// Unreserved, reserved and well-formed percent-encoded characters only (RFC 3986, section 2).
bool hasUrlCharacters(std::string_view text) {
  constexpr std::string_view kMarks = "-._~:/?#[]@!$&'()*+,;=";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '%') {
      if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2]))
        return false;
      i += 2;
    } else if (c >= 0x80 || (std::isalnum(c) == 0 && kMarks.find(text[i]) == kMarks.npos)) {
      return false;
    }
  }
  return true;
}

// RFC 3986, section 3.1.
bool hasScheme(std::string_view text) {
  const auto colon = text.find(':');
  return colon != text.npos && colon > 0 && text.substr(0, colon).find_first_of("/?#") == text.npos;
}

}  // namespace

bool isUrl(const std::string& text) {
  if (text.empty() || !hasUrlCharacters(text)) return false;
  return !hasScheme(text) || text.find("://") == std::string::npos || parsed(text) != nullptr;
}

bool isHttpUrl(const std::string& text) {
  const Url url = parsed(text);
  if (!url) return false;
  const std::string scheme = part(url, CURLUPART_SCHEME);
  return scheme == "http" || scheme == "https";
}

std::optional<std::string> urlBelow(const std::string& base, const std::string& path,
                                    const std::string& key, const std::string& value) {
  if (!hasUrlCharacters(base) || !isHttpUrl(base)) return std::nullopt;
  // Put together as text: libcurl would take dot segments out of the base's path and write a
  // space of the query as "+".
  const auto fragment = std::min(base.find('#'), base.size());
  std::string url = base.substr(0, std::min(base.find('?'), fragment));
  while (url.ends_with('/')) url.pop_back();
  url += '/' + path + '?' + percentEncoded(key) + '=' + percentEncoded(value);
  return url.append(base, fragment);
}

}  // namespace pelmar
