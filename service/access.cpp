#include "service/access.h"

#include <array>
#include <cstdio>
#include <random>

namespace pelmar::service {

std::optional<std::string> foreignness(const HttpRequest& request) {
  const std::string port = std::to_string(request.port);
  const std::string host = request.header("Host");
  if (host != "127.0.0.1:" + port && host != "localhost:" + port) {
    return "the Host header names another address than the service's own";
  }
  const std::string origin = request.header("Origin");
  if (!origin.empty() && origin != std::string("http://").append(host))
    return "another site's page sent this";
  const std::string site = request.header("Sec-Fetch-Site");
  if (!site.empty() && site != "same-origin" && site != "none") {
    return "another site's page sent this";
  }
  return std::nullopt;
}

HttpHeaders protectiveHeaders() {
  return {{"Content-Security-Policy",
           "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
           "img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
           "require-trusted-types-for 'script'; trusted-types 'none'"},
          {"X-Content-Type-Options", "nosniff"},
          {"Cache-Control", "no-store"},
          {"Referrer-Policy", "no-referrer"},
          {"Cross-Origin-Resource-Policy", "same-origin"},
          {"Cross-Origin-Opener-Policy", "same-origin"}};
}

std::string newToken() {
  std::random_device source;
  std::string token;
  for (int i = 0; i < 4; ++i) {
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x", source());
    token += digits.data();
  }
  return token;
}

}  // namespace pelmar::service
