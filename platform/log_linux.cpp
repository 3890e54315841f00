#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/log.h"

namespace pelmar {
namespace {

constexpr const char* kSubsystem = "dev.pelmar.setup";

// systemd tells a service where its stderr leads by the device and inode of the stream
// in JOURNAL_STREAM (systemd.exec(5)); a redirected stderr no longer agrees with it.
bool isStderrTheJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe)
  struct stat status {};
  if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) return false;
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

// One datagram an entry, in the journal's native protocol. spdlog's own journal sink has
// no fields beyond its fixed ones, and would bring libsystemd for this one call.
class JournalSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  JournalSink() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    address_.sun_family = AF_UNIX;
    std::strncpy(address_.sun_path, "/run/systemd/journal/socket", sizeof address_.sun_path - 1);
  }
  ~JournalSink() override {
    if (socket_ >= 0) ::close(socket_);
  }
  JournalSink(const JournalSink&) = delete;
  JournalSink& operator=(const JournalSink&) = delete;
  JournalSink(JournalSink&&) = delete;
  JournalSink& operator=(JournalSink&&) = delete;

 private:
  void sink_it_(const spdlog::details::log_msg& entry) override {
    std::string datagram = "PRIORITY=";
    datagram += entry.level == spdlog::level::err    ? "3"
                : entry.level == spdlog::level::info ? "5"
                                                     : "7";
    datagram += "\nSYSLOG_IDENTIFIER=PelmarCoworkWatcher\nSUBSYSTEM=";
    datagram += kSubsystem;
    datagram += "\nCATEGORY=";
    datagram.append(entry.logger_name.data(), entry.logger_name.size());
    datagram += "\nMESSAGE=";
    datagram.append(entry.payload.data(), entry.payload.size());
    datagram += '\n';
    ::sendto(socket_, datagram.data(), datagram.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address_), sizeof address_);
  }
  void flush_() override {}

  int socket_;
  sockaddr_un address_{};
};

spdlog::sink_ptr makeSink() {
  if (isStderrTheJournal()) return std::make_shared<JournalSink>();
  auto sink = std::make_shared<spdlog::sinks::stderr_sink_st>();
  sink->set_formatter(
      std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%e%z %l %n %v"));
  return sink;
}

// A message quotes paths, and a file name may hold line breaks: one message stays one line.
std::string onOneLine(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = '?';
  }
  return line;
}

void write(const char* category, spdlog::level::level_enum level, std::string_view text) {
  static const spdlog::sink_ptr sink = makeSink();
  spdlog::logger logger(category, sink);
  logger.set_level(spdlog::level::trace);
  logger.flush_on(spdlog::level::trace);
  logger.log(level, onOneLine(text));
}

}  // namespace

void Logger::message(std::string_view text) const { write(category_, spdlog::level::info, text); }
void Logger::error(std::string_view text) const { write(category_, spdlog::level::err, text); }
void Logger::debug(std::string_view text) const { write(category_, spdlog::level::debug, text); }

}  // namespace pelmar
