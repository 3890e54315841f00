// The way of every request of the client to the service and back.

#include <chrono>
#include <cmath>
#include <string_view>

#include "config/activity_log.h"
#include "observe/observe_client.h"
#include "platform/fatal.h"
#include "platform/json.h"
#include "platform/log.h"
#include "platform/pause.h"
#include "platform/url.h"

namespace pelmar {
namespace {

using std::chrono::milliseconds;

constexpr Logger logger("cowork-watcher.client");

enum class Verdict { success, refused, tryAgain };

Verdict verdictOn(const HttpExchange& exchange) {
  if (exchange.error) return Verdict::tryAgain;  // whatever status came before the transfer broke
  if (exchange.status >= 200 && exchange.status <= 299) return Verdict::success;
  if (exchange.status >= 400 && exchange.status <= 499) return Verdict::refused;
  return Verdict::tryAgain;
}

void writeActivity(const std::string& url, const HttpExchange& exchange, milliseconds elapsed,
                   const std::string& summary) {
  const bool failed = exchange.error.has_value();
  const std::size_t bytes = failed || !exchange.body ? 0 : exchange.body->size();
  ActivityLog::record("POST", url, failed ? 0 : exchange.status, elapsed.count(),
                      static_cast<std::int64_t>(bytes), summary, exchange.error);
}

}  // namespace

double backoffAfter(int attempt, double backoffBase) {
  return std::ldexp(backoffBase, attempt - 1);
}

std::string endpointUrl(const std::string& apiUrl, const std::string& path) {
  std::string_view base = apiUrl;
  while (base.starts_with('/')) base.remove_prefix(1);
  while (base.ends_with('/')) base.remove_suffix(1);
  return std::string(base) + path;
}

HttpExchange ObserveClient::doPostOnce(const std::string& url, const std::string& body,
                                       double deadline) const {
  return http_->send({.url = url,
                      .headers = {{"X-Pel-Key", apiKey}, {"Content-Type", "application/json"}},
                      .body = body,
                      .deadline = milliseconds(std::llround(deadline * 1000))});
}

std::optional<json> ObserveClient::post(const std::string& path, const json& body,
                                        const std::string& summary) const {
  if (apiUrl.empty() || apiKey.empty()) return std::nullopt;
  const std::string url = endpointUrl(apiUrl, path);
  if (!isUrl(url)) return std::nullopt;
  const std::string text = compactJson(body);
  if (maxAttempts < 1) fatal("a request needs at least one attempt");

  for (int attempt = 1; attempt <= maxAttempts; ++attempt) {
    const auto begin = std::chrono::steady_clock::now();
    const HttpExchange exchange = doPostOnce(url, text, timeout + 5);
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    writeActivity(url, exchange, std::chrono::duration_cast<milliseconds>(elapsed), summary);

    switch (verdictOn(exchange)) {
      case Verdict::success:
        return parseJsonObject(exchange.body.value_or("")).value_or(json::object());
      case Verdict::refused:
        logger.error("4xx " + std::to_string(exchange.status) + " on " + path + " — non-retryable");
        return std::nullopt;
      case Verdict::tryAgain:
        break;
    }
    if (attempt < maxAttempts) {
      pauseFor(backoffAfter(attempt, backoffBase));
    } else if (exchange.error) {
      logger.error("transport failure after " + std::to_string(maxAttempts) + " attempts: " + path);
    }
  }
  return std::nullopt;
}

}  // namespace pelmar
