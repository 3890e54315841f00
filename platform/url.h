#pragma once

// URL texts (RFC 3986), taken apart by libcurl.

#include <optional>
#include <string>
#include <string_view>

namespace pelmar {

// Whether `text` is a URL or a relative reference: by its characters, and, where it is absolute, by
// being one that can be taken apart. A text without a scheme is valid, though nothing answers
// there.
bool isUrl(const std::string& text);

// Whether `text` is an absolute URL of the scheme http or https.
bool isHttpUrl(const std::string& text);

// `base` with `path` appended by exactly one "/" and its query replaced by `key`=`value`, both
// percent-encoded; none when `base` is no absolute http or https URL.
std::optional<std::string> urlBelow(const std::string& base, const std::string& path,
                                    const std::string& key, const std::string& value);

}  // namespace pelmar
