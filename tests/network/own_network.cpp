#include "tests/network/own_network.h"

#include <curl/curl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "tests/support/temp_root.h"

namespace pelmar::test {
namespace {

// Stands in the /etc of such a network and in no other.
constexpr const char* kMark = "/etc/network-of-the-tests";

std::vector<std::string> launcher() {
  std::vector<std::string> command = {"bwrap",
                                      "--die-with-parent",
                                      "--unshare-user",
                                      "--uid",
                                      "0",
                                      "--gid",
                                      "0",
                                      "--unshare-net",
                                      "--cap-add",
                                      "CAP_NET_BIND_SERVICE",  // for a name server
                                      "--dev-bind",
                                      "/",
                                      "/",
                                      "--tmpfs",
                                      "/run",  // the sockets of the machine's own name lookup
                                      "--tmpfs",
                                      "/etc",
                                      "--symlink",
                                      "-",
                                      kMark};
  for (const char* kept :
       {"/etc/passwd", "/etc/ld.so.cache", "/etc/ssl/openssl.cnf", "/etc/alternatives"}) {
    command.insert(command.end(), {"--ro-bind-try", kept, kept});
  }
  return command;
}

bool canLaunch() {
  std::string command;
  for (const auto& word : launcher()) command += word + ' ';
  return std::system((command + "true >/dev/null 2>&1").c_str()) == 0;
}

void writeInEtc(const std::string& path, const std::string& content) {
  if (!isOwnNetwork() || !path.starts_with("/etc/")) {
    throw std::logic_error(path + " is not the test's own");
  }
  writeFile(path, content);
}

// Where the system's libcurl looks.
std::string trustedCertificates() {
  CURL* curl = curl_easy_init();
  const char* path = nullptr;
#if LIBCURL_VERSION_NUM >= 0x075400
  curl_easy_getinfo(curl, CURLINFO_CAINFO, &path);
#endif
  std::string found = path != nullptr ? path : "/etc/ssl/certs/ca-certificates.crt";
  curl_easy_cleanup(curl);
  return found;
}

}  // namespace

bool isOwnNetwork() { return std::filesystem::is_symlink(kMark); }

void enterOwnNetwork(char** argv) {
  if (!isOwnNetwork()) {
    if (!canLaunch()) return;
    auto command = launcher();
    command.emplace_back(std::filesystem::canonical("/proc/self/exe"));
    std::vector<char*> words;
    words.reserve(command.size());
    for (auto& word : command) words.push_back(word.data());
    for (char** argument = argv + 1; *argument != nullptr; ++argument) words.push_back(*argument);
    words.push_back(nullptr);
    ::execvp(words.front(), words.data());
    return;
  }
  writeInEtc("/etc/nsswitch.conf", "hosts: files dns\n");
  writeInEtc("/etc/host.conf", "multi on\n");  // a name may have several lines
}

void setHosts(const std::string& lines) { writeInEtc("/etc/hosts", lines); }

void setResolver(const std::string& lines) { writeInEtc("/etc/resolv.conf", lines); }

void trust(const std::string& authority) { writeInEtc(trustedCertificates(), authority); }

}  // namespace pelmar::test
