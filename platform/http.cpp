#include "platform/http.h"

#include <curl/curl.h>
#include <poll.h>

#include <algorithm>
#include <string>

#include "platform/fatal.h"
#include "platform/uninterrupted.h"
#include "platform/url.h"

namespace pelmar {
namespace {

constexpr std::size_t kMostAnswerBytes = 8 * 1024 * 1024;
constexpr long kLeastStatus = 100;
constexpr int kLongestPollMs = 1000;  // libcurl polls shorter where a deadline is nearer

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

// What the callbacks of one exchange share with it.
struct Transfer {
  std::optional<std::string> body;
  bool isTooLarge = false;
  bool isHeadWhole = false;
  bool isSent = false;
};

std::size_t receive(char* bytes, std::size_t /*one*/, std::size_t count, void* context) {
  auto& transfer = *static_cast<Transfer*>(context);
  if (!transfer.body) transfer.body.emplace();
  if (transfer.body->size() + count > kMostAnswerBytes) {
    transfer.isTooLarge = true;
    return 0;
  }
  transfer.body->append(bytes, count);
  return count;
}

// libcurl takes a head that breaks off for a whole one; its empty last line tells them apart. Lines
// behind a chunked body come here too.
std::size_t watchHead(char* bytes, std::size_t /*one*/, std::size_t count, void* context) {
  auto& transfer = *static_cast<Transfer*>(context);
  const std::string_view line(bytes, count);
  if (line.starts_with("HTTP/")) transfer.isHeadWhole = false;
  if (line == "\r\n" || line == "\n") transfer.isHeadWhole = true;
  return count;
}

// Called before each time a request is sent. When a kept connection ends without an answer, libcurl
// sends the request once more by itself, although the service may have taken the first: a retry
// is the caller's to decide and to write down.
int allowOnce(void* context, char* /*to*/, char* /*from*/, int /*toPort*/, int /*fromPort*/) {
  auto& transfer = *static_cast<Transfer*>(context);
  if (transfer.isSent) return CURL_PREREQFUNC_ABORT;
  transfer.isSent = true;
  return CURL_PREREQFUNC_OK;
}

bool isHeaderValue(const std::string& value) {
  return std::none_of(value.begin(), value.end(),
                      [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

// None when a value would end its line and smuggle in headers of its own.
std::optional<HeaderList> headerList(const HttpRequest& request) {
  HeaderList list;
  const auto add = [&list](const std::string& line) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) fatal("out of memory");
    static_cast<void>(list.release());
    list.reset(longer);
  };
  for (const auto& [name, value] : request.headers) {
    if (!isHeaderValue(value)) return std::nullopt;
    // libcurl leaves a header without a value out unless it is written this way.
    const bool isBlank = value.find_first_not_of(" \t") == std::string::npos;
    add(isBlank ? name + ';' : name + ": " + value);
  }
  add("Accept:");  // a name alone takes back what libcurl adds by itself
  add("Expect:");
  add("Content-Type:");
  add("Proxy-Connection:");
  return list;
}

}  // namespace

// The connections outlive an exchange, libcurl's handle of it does not: up to 7.88 such a handle
// carries a pointer to a freed header line from one answer into the next.
struct HttpClient::State {
  State() : connections(curl_multi_init()), sessions(curl_share_init()) {
    if (connections == nullptr || sessions == nullptr) fatal("libcurl cannot be initialised");
    curl_share_setopt(sessions, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  ~State() {
    endExchange();
    curl_multi_cleanup(connections);
    curl_share_cleanup(sessions);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  template <typename Value>
  void set(CURLoption option, Value value) {
    curl_easy_setopt(exchange, option, value);
  }

  void beginExchange() {
    endExchange();
    exchange = curl_easy_init();
    if (exchange == nullptr) fatal("out of memory");
    set(CURLOPT_SHARE, sessions);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});  // or newer (RFC 8996)
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_HTTPAUTH, long{CURLAUTH_NONE});  // a URL's user and password are not sent either
    set(CURLOPT_WRITEFUNCTION, &receive);
    set(CURLOPT_HEADERFUNCTION, &watchHead);
    set(CURLOPT_PREREQFUNCTION, &allowOnce);
#if LIBCURL_VERSION_NUM >= 0x075700
    set(CURLOPT_QUICK_EXIT, 1L);  // else a name lookup that hangs holds up the end of the deadline
#endif
#if LIBCURL_VERSION_NUM >= 0x075500
    set(CURLOPT_PROTOCOLS_STR, "http,https");
#else
    set(CURLOPT_PROTOCOLS, long{CURLPROTO_HTTP | CURLPROTO_HTTPS});
#endif
  }

  // Blocks until it has ended.
  CURLcode perform() {
    int running = 1;
    auto driven = curl_multi_add_handle(connections, exchange);
    while (driven == CURLM_OK && running > 0) {
      driven = curl_multi_perform(connections, &running);
      if (driven == CURLM_OK && running > 0) {
        driven = curl_multi_poll(connections, nullptr, 0, kLongestPollMs, nullptr);
      }
    }
    const auto* ended = curl_multi_info_read(connections, &running);
    return ended == nullptr ? CURLE_FAILED_INIT : ended->data.result;
  }

  void endExchange() {
    if (exchange == nullptr) return;
    curl_multi_remove_handle(connections, exchange);
    curl_easy_cleanup(exchange);
    exchange = nullptr;
  }

  // Whether the kept connection has something to read before a request was sent.
  bool hasUnread() const {
    if (exchange == nullptr) return false;
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(exchange, CURLINFO_ACTIVESOCKET, &socket);
    pollfd kept{.fd = socket, .events = POLLIN, .revents = 0};
    return socket != CURL_SOCKET_BAD && uninterrupted([&] { return ::poll(&kept, 1, 0); }) > 0;
  }

  CURLM* connections;
  CURLSH* sessions;
  CURL* exchange = nullptr;  // the latest one, until the next begins: it knows its connection
};

HttpClient::HttpClient() : state_(std::make_unique<State>()) {}
HttpClient::~HttpClient() = default;

HttpExchange HttpClient::send(const HttpRequest& request) {
  if (!isHttpUrl(request.url)) return {.error = "unsupported URL"};
  const auto headers = headerList(request);
  if (!headers) return {.error = "a header value holds a line break"};

  // The other side has ended the connection, or spoke unasked, as some do before they end it;
  // libcurl would take that for the answer to this request.
  if (state_->hasUnread()) state_ = std::make_unique<State>();

  Transfer transfer;
  state_->beginExchange();
  state_->set(CURLOPT_URL, request.url.c_str());
  state_->set(CURLOPT_HTTPHEADER, headers->get());
  state_->set(CURLOPT_TIMEOUT_MS, static_cast<long>(request.deadline.count()));
  state_->set(CURLOPT_WRITEDATA, &transfer);
  state_->set(CURLOPT_HEADERDATA, &transfer);
  state_->set(CURLOPT_PREREQDATA, &transfer);
  if (request.body) {
    state_->set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    state_->set(CURLOPT_POSTFIELDS, request.body->data());
  } else {
    state_->set(CURLOPT_HTTPGET, 1L);
  }

  const CURLcode result = state_->perform();
  if (result == CURLE_OPERATION_TIMEDOUT) return {};
  if (result == CURLE_ABORTED_BY_CALLBACK) return {.error = "the connection was lost"};
  if (result == CURLE_OK && !transfer.isHeadWhole) return {.error = "the answer broke off"};
  long status = 0;
  curl_easy_getinfo(state_->exchange, CURLINFO_RESPONSE_CODE, &status);
  // Some that are none pass libcurl, and 0 stands for no answer at all.
  if (transfer.isHeadWhole && status < kLeastStatus) return {.error = "the answer has no status"};
  if (transfer.isTooLarge) return {.status = static_cast<int>(status)};
  if (result != CURLE_OK) {
    return {.body = std::move(transfer.body),
            .status = static_cast<int>(status),
            .error = curl_easy_strerror(result)};
  }
  return {.body = std::move(transfer.body), .status = static_cast<int>(status)};
}

}  // namespace pelmar
