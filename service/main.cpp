#include <pthread.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "service/local_service.h"

namespace {

constexpr const char* kUsage =
    "usage: pelmar-local-service --database FILE --key-file FILE [--port N]\n"
    "                            [--agent-config FILE] [--page FOLDER]\n";

struct Arguments {
  pelmar::service::LocalServiceOptions options = {};
  std::string keyFile = {};
  std::string agentConfigFile = {};
};

int complain(const std::string& what) {
  std::fprintf(stderr, "pelmar-local-service: %s\n%s", what.c_str(), kUsage);
  return 2;
}

bool parsePort(std::string_view text, std::uint16_t& port) {
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), port);
  return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

// None when the arguments are right.
std::optional<std::string> parseArguments(int count, char** values, Arguments& arguments) {
  for (int i = 1; i < count; ++i) {
    const std::string name = values[i];
    if (i + 1 == count) return name + " needs a value, or is unknown";
    const std::string value = values[++i];
    if (name == "--database") {
      arguments.options.database = value;
    } else if (name == "--key-file") {
      arguments.keyFile = value;
    } else if (name == "--agent-config") {
      arguments.agentConfigFile = value;
    } else if (name == "--page") {
      arguments.options.page = value;
    } else if (name != "--port") {
      return name + " is unknown";
    } else if (!parsePort(value, arguments.options.port)) {
      return value + " is no port";
    }
  }
  if (arguments.options.database.empty()) return "--database is missing";
  if (arguments.keyFile.empty()) return "--key-file is missing";
  return std::nullopt;
}

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// The key is the file's first line: on the command line every user could read it.
std::optional<std::string> readKey(const std::string& path) {
  const auto text = readFile(path);
  if (!text) return std::nullopt;
  std::string key = text->substr(0, text->find_first_of("\r\n"));
  if (key.empty()) return std::nullopt;
  return key;
}

// An array of {"device_token", "tenant_slug", "process", "answer"}.
bool registerDevices(const std::string& path, pelmar::service::LocalService& service) {
  const auto text = readFile(path);
  const auto devices = text ? pelmar::parseJson(*text) : std::nullopt;
  if (!devices || !devices->is_array()) return false;
  for (const pelmar::json& device : *devices) {
    if (!device.is_object() || !device.contains("answer")) return false;
    service.registerDevice({pelmar::textAt(device, "device_token"),
                            pelmar::textAt(device, "tenant_slug"),
                            pelmar::textAt(device, "process"), device["answer"]});
  }
  return true;
}

int serve(int count, char** values) {
  Arguments arguments;
  if (const auto fault = parseArguments(count, values, arguments)) return complain(*fault);
  const auto key = readKey(arguments.keyFile);
  if (!key) return complain("cannot read a key from " + arguments.keyFile);
  arguments.options.key = *key;

  // Blocked before any thread exists, so that every thread leaves them to sigwait below.
  sigset_t endings;
  sigemptyset(&endings);
  sigaddset(&endings, SIGINT);
  sigaddset(&endings, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &endings, nullptr);

  std::string error;
  const auto service = pelmar::service::LocalService::start(arguments.options, error);
  if (service == nullptr) return complain(error);
  if (!arguments.agentConfigFile.empty() && !registerDevices(arguments.agentConfigFile, *service)) {
    return complain("cannot read devices from " + arguments.agentConfigFile);
  }
  std::printf("listening on %s\npage at %s\n", service->url().c_str(), service->pageUrl().c_str());
  std::fflush(stdout);

  int signal = 0;
  sigwait(&endings, &signal);
  service->stop();
  return 0;
}

}  // namespace

int main(int count, char** values) {
  try {
    return serve(count, values);
  } catch (const std::exception& error) {  // out of memory, or of threads
    std::fprintf(stderr, "pelmar-local-service: %s\n", error.what());
    return 1;
  }
}
