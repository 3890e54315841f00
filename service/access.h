#pragma once

// Access says which requests a browser may have been tricked into sending: those for another
// name than the service's own (DNS rebinding) and those that another site's page sends.
// It checks neither keys nor tokens, and never refuses a program that is no browser.

#include <optional>
#include <string>

#include "service/http_server.h"

namespace pelmar::service {

// None when the request may be answered, otherwise what is wrong with it.
std::optional<std::string> foreignness(const HttpRequest& request);

// The headers of every answer that a browser sees: nothing but the page's own files runs, is
// shown elsewhere or is kept.
HttpHeaders protectiveHeaders();

// Random, 32 hexadecimal digits.
std::string newToken();

}  // namespace pelmar::service
