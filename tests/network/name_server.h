#pragma once

// The name server of a test's own network, at the port that resolvers know. It knows one name at
// most, by one IPv4 address.

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace pelmar::test {

class NameServer {
 public:
  enum class Manner { silent, denying, answering };

  // Listens on 127.0.0.1.
  explicit NameServer(Manner manner);
  ~NameServer();
  NameServer(const NameServer&) = delete;
  NameServer& operator=(const NameServer&) = delete;

  void become(Manner manner);

  // Blocks until `count` questions have come.
  void waitForQuestions(std::size_t count) const;

 private:
  void serve();
  std::string answerTo(std::string question) const;

  int socket_;
  int wakeUp_[2] = {-1, -1};
  mutable std::mutex mutex_{};  // for all below
  mutable std::condition_variable asked_{};
  Manner manner_;
  std::size_t questionCount_ = 0;
  std::thread thread_{};
};

}  // namespace pelmar::test
