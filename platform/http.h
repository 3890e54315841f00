#pragma once

// HTTP exchanges over one kept connection (libcurl). Only http and https are spoken, TLS peers are
// verified, redirects are never followed and nothing is sent but the headers named by the caller
// and what HTTP/1.1 needs. A proxy that the environment names (https_proxy, no_proxy) is used.
// Not locked: one thread at a time.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pelmar {

struct HttpRequest {
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers{};
  std::optional<std::string_view> body{};  // POST when set, else GET; must outlive the exchange
  std::chrono::milliseconds deadline{};    // above 0; for all of it, name lookup included
};

struct HttpExchange {
  std::optional<std::string> body{};   // none when nothing arrived
  int status = 0;                      // 0 when there was no answer
  std::optional<std::string> error{};  // set when the transfer failed; never holds a header's value

  // The deadline passed before the answer was whole: neither body, status nor error.
  bool isTimeout() const { return !error && status == 0; }
};

class HttpClient {
 public:
  HttpClient();
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  // Sends `request` at most once and blocks until it is answered, has failed or its deadline has
  // passed. A URL without a scheme, or with another than http and https, fails as a transfer.
  // An answer's body beyond 8 MiB is dropped, its status kept.
  HttpExchange send(const HttpRequest& request);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace pelmar
