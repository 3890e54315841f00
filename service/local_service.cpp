#include "service/local_service.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "service/access.h"
#include "service/exports.h"
#include "service/page_api.h"
#include "service/page_files.h"
#include "service/queries.h"
#include "service/query_api.h"
#include "service/replies.h"
#include "service/store.h"

namespace pelmar::service {
namespace {

using SteadyClock = std::chrono::steady_clock;

json maskedHeaders(const HttpRequest& request) {
  json headers = json::array();
  for (const auto& [name, value] : request.headers) {
    const bool isSecret =
        isSameHeaderName(name, "X-Pel-Key") || isSameHeaderName(name, "X-Pel-Device");
    headers.push_back({name, isSecret ? "***" : value});
  }
  return headers;
}

// How long what was answered may wait to be seen by other readers of the file.
constexpr auto kFlushInterval = std::chrono::milliseconds(50);

// Between two messages to a page: it asks again after each.
constexpr auto kChangesInterval = std::chrono::milliseconds(250);

// A page that is gone is noticed by writing to it.
constexpr auto kSignOfLifeInterval = std::chrono::seconds(15);

bool isAnswered(Ending ending) { return ending != Ending::Drop && ending != Ending::NoAnswer; }

}  // namespace

// Everything behind the HTTP server: one request at a time.
class LocalService::Desk {
 public:
  Desk(LocalServiceOptions options, std::unique_ptr<Store> store)
      : options_(std::move(options)),
        store_(std::move(store)),
        queries_(store_->database()),
        pageQueries_(store_->database()),
        api_(*store_),
        files_(options_.page),
        flusher_([this] { flushInTime(); }) {}

  ~Desk() { stop(); }

  HttpReply handle(HttpRequest& request, const HttpServer::BodyReader& readBody) {
    if (const auto fault = foreignness(request)) return errorReply(403, *fault);
    if (auto file = files_.answer(request)) return *std::move(file);
    if (isQueryPath(request.path)) {
      HttpReply reply = mayQuery(request) ? answerAnyQuery(request) : wrongKey();
      for (auto& header : protectiveHeaders()) reply.headers.push_back(std::move(header));
      return reply;
    }
    const std::optional<Script> script = takeScript(request.path);
    // Without the lock: a slow sender must not hold up the others.
    const std::optional<int> refusal = script && !script->isBodyRead ? std::nullopt : readBody();
    const std::lock_guard lock(mutex_);
    HttpReply reply = answerAndStore(request, script, refusal);
    ++handled_;
    wakeUp_.notify_all();
    return reply;
  }

  bool waitFor(const std::function<bool()>& predicate, SteadyClock::time_point deadline) {
    std::unique_lock lock(mutex_);
    while (true) {
      const std::uint64_t seen = handled_;
      lock.unlock();  // the predicate asks the service itself
      if (predicate()) return true;
      lock.lock();
      if (!wakeUp_.wait_until(lock, deadline, [&] { return handled_ != seen; })) return false;
    }
  }

  // Ends the streams, so that the server can stop.
  void breakOffStreams() {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    wakeUp_.notify_all();
    flushing_.notify_all();
  }

  void stop() {
    breakOffStreams();
    if (flusher_.joinable()) flusher_.join();
    const std::lock_guard lock(mutex_);
    store_->flush();
  }

  const std::string& token() const { return token_; }

  // Runs `read` while nothing else happens.
  template <typename Read>
  auto locked(Read read) {
    const std::lock_guard lock(mutex_);
    return read(*this);
  }

  ObserveApi& api() { return api_; }
  ScriptBook& scripts() { return scripts_; }
  Queries& queries() { return queries_; }
  const std::vector<ReceivedRequest>& received() const { return received_; }

 private:
  static HttpReply wrongKey() { return errorReply(401, "the key is missing or wrong"); }

  bool hasKey(const HttpRequest& request) const {
    return request.header("X-Pel-Key") == options_.key;
  }

  bool mayQuery(const HttpRequest& request) const {
    const auto token = request.query.find("token");
    return hasKey(request) || (token != request.query.end() && token->second == token_);
  }

  HttpReply answerAnyQuery(const HttpRequest& request) {
    if (request.path == "/api/local/changes") return changes();
    const auto locked = [this](const std::function<void()>& read) {
      const std::lock_guard lock(mutex_);
      read();
    };
    if (auto answer = answerExport(request, pageQueries_, locked)) return *std::move(answer);
    const std::lock_guard lock(mutex_);
    if (auto answer = answerPageQuery(request, pageQueries_, utcDay(options_.now()))) {
      return *std::move(answer);
    }
    return answerQuery(request, *store_, queries_);
  }

  // Server-sent events: how many requests were handled, at once and whenever there are more.
  HttpReply changes() {
    HttpReply reply{.contentType = "text/event-stream"};
    reply.stream = [this](const BodyWriter& write) {
      std::unique_lock lock(mutex_);
      std::optional<std::uint64_t> told;
      while (!isStopping_) {
        const bool isNews = told != handled_;
        told = handled_;
        lock.unlock();
        const std::string message = "data: " + std::to_string(*told) + "\n\n";
        if (!write(isNews ? message : ": still here\n\n")) return;
        lock.lock();
        wakeUp_.wait_for(lock, kChangesInterval, [this] { return isStopping_; });
        wakeUp_.wait_for(lock, kSignOfLifeInterval,
                         [&] { return isStopping_ || told != handled_; });
      }
    };
    return reply;
  }

  void flushInTime() {
    std::unique_lock lock(mutex_);
    while (!isStopping_) {
      flushing_.wait(lock, [this] { return isStopping_ || store_->isUnflushed(); });
      flushing_.wait_for(lock, kFlushInterval, [this] { return isStopping_; });
      store_->flush();
    }
  }

  std::optional<Script> takeScript(std::string_view path) {
    const std::lock_guard lock(mutex_);
    return scripts_.take(path);
  }

  HttpReply answerAndStore(const HttpRequest& request, const std::optional<Script>& script,
                           std::optional<int> refusal) {
    const auto begun = SteadyClock::now();
    const TimePoint now = options_.now();
    const bool wasUnflushed = store_->isUnflushed();
    if (!store_->begin()) return errorReply(500, "the database refused the request");
    if (!wasUnflushed) flushing_.notify_one();
    HttpReply reply = answer(request, script, refusal, now);
    const bool mayStand = reply.status != 500 || (script && !script->isProcessed);
    if (!mayStand) {
      store_->rollback();
      store_->begin();
    }
    const bool isSent = isAnswered(reply.ending);
    const RequestRecord record{
        .receivedAt = now,
        .method = request.method,
        .target = request.target,
        .headers = maskedHeaders(request),
        .body = request.body,
        .status = isSent && reply.ending != Ending::RawBytes ? reply.status : 0,
        .answerBytes = isSent ? static_cast<std::int64_t>(reply.body.size()) : 0,
        .duration =
            std::chrono::duration_cast<std::chrono::microseconds>(SteadyClock::now() - begun)};
    if (!store_->addRequest(record) || !store_->commit()) {
      store_->rollback();
      reply = errorReply(500, "the database refused the request");
    }
    if (options_.remembersRequests) received_.push_back({request, record.status});
    return reply;
  }

  HttpReply answer(const HttpRequest& request, const std::optional<Script>& script,
                   std::optional<int> refusal, TimePoint now) {
    if (script && !script->isProcessed) return script->reply;
    HttpReply reply = answerOrdinarily(request, refusal, now);
    if (script) {
      reply.ending = script->reply.ending;
      reply.delay = script->reply.delay;
    }
    return reply;
  }

  HttpReply answerOrdinarily(const HttpRequest& request, std::optional<int> refusal,
                             TimePoint now) {
    if (!ObserveApi::isForDevices(request.path) && !hasKey(request)) return wrongKey();
    if (refusal) return errorReply(*refusal, "the body did not come as announced");
    return api_.answer(request, now);
  }

  LocalServiceOptions options_;
  std::mutex mutex_;
  std::condition_variable wakeUp_;
  std::condition_variable flushing_;
  std::uint64_t handled_ = 0;
  bool isStopping_ = false;
  std::unique_ptr<Store> store_;
  Queries queries_;
  PageQueries pageQueries_;
  ObserveApi api_;
  ScriptBook scripts_;
  std::vector<ReceivedRequest> received_;
  const PageFiles files_;
  const std::string token_ = newToken();
  std::thread flusher_;  // last: it uses all of the above
};

LocalService::LocalService(std::unique_ptr<Desk> desk, std::unique_ptr<HttpServer> server)
    : desk_(std::move(desk)), server_(std::move(server)) {}

LocalService::~LocalService() { stop(); }

std::unique_ptr<LocalService> LocalService::start(LocalServiceOptions options, std::string& error) {
  auto store = Store::open(options.database, error);
  if (store == nullptr) {
    error = "cannot open " + options.database.string() + ": " + error;
    return nullptr;
  }
  const std::uint16_t port = options.port;
  auto desk = std::make_unique<Desk>(std::move(options), std::move(store));
  auto server = HttpServer::start(
      port, [&desk = *desk](HttpRequest& request, const HttpServer::BodyReader& readBody) {
        return desk.handle(request, readBody);
      });
  if (server == nullptr) {
    error = "cannot listen on port " + std::to_string(port);
    return nullptr;
  }
  return std::unique_ptr<LocalService>(new LocalService(std::move(desk), std::move(server)));
}

std::string LocalService::url() const {
  return "http://127.0.0.1:" + std::to_string(server_->port());
}

std::string LocalService::pageUrl() const { return url() + "/?token=" + desk_->token(); }

void LocalService::registerDevice(Device device) {
  desk_->locked([&](Desk& desk) { desk.api().registerDevice(std::move(device)); });
}

void LocalService::script(std::string pattern, Script script, std::optional<int> times) {
  desk_->locked(
      [&](Desk& desk) { desk.scripts().add(std::move(pattern), std::move(script), times); });
}

void LocalService::clearScripts() {
  desk_->locked([](Desk& desk) { desk.scripts().clear(); });
}

void LocalService::stop() {
  desk_->breakOffStreams();
  server_->stop();
  desk_->stop();
}

bool LocalService::waitFor(const std::function<bool()>& predicate,
                           std::chrono::milliseconds limit) {
  return desk_->waitFor(predicate, SteadyClock::now() + limit);
}

std::vector<ReceivedRequest> LocalService::requests() {
  return desk_->locked([](Desk& desk) { return desk.received(); });
}

json LocalService::summary() {
  return desk_->locked([](Desk& desk) { return desk.queries().summary(); });
}

std::vector<json> LocalService::runs() {
  return desk_->locked([](Desk& desk) { return desk.queries().runs({}); });
}

std::vector<json> LocalService::steps() {
  return desk_->locked([](Desk& desk) { return desk.queries().allSteps(); });
}

std::vector<json> LocalService::steps(std::string_view runId) {
  return desk_->locked([&](Desk& desk) { return desk.queries().steps(runId, {}); });
}

std::vector<json> LocalService::llmCalls() {
  return desk_->locked([](Desk& desk) { return desk.queries().allLlmCalls(); });
}

std::vector<json> LocalService::completions() {
  return desk_->locked([](Desk& desk) { return desk.queries().completions(); });
}

std::vector<json> LocalService::heartbeats() {
  return desk_->locked([](Desk& desk) { return desk.queries().heartbeats(); });
}

std::vector<json> LocalService::storedRequests() {
  return desk_->locked([](Desk& desk) { return desk.queries().requests({}); });
}

}  // namespace pelmar::service
