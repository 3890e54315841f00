#include "service/http_server.h"

#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

class HttpServerTest : public testing::Test {
 protected:
  Client connect() { return Client("http://127.0.0.1:" + std::to_string(server_->port())); }

  // Answers with the body that came.
  std::unique_ptr<HttpServer> server_ =
      HttpServer::start(0, [](HttpRequest& request, const HttpServer::BodyReader& readBody) {
        const auto refusal = readBody();
        return HttpReply{.status = refusal.value_or(200), .body = request.body};
      });
};

int answersIn(const std::string& text) {
  int count = 0;
  for (auto at = text.find("HTTP/1.1 200"); at != std::string::npos;
       at = text.find("HTTP/1.1 200", at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(HttpServerTest, AnswersManyRequestsOnOneConnection) {
  Client client = connect();
  std::string all;
  for (int i = 0; i < 99; ++i) all += requestTo("http://h", "POST", "/", "x", "");
  client.send(all + requestTo("http://h", "POST", "/", "last", "Connection: close\r\n"));
  const std::string text = client.readToEnd();
  EXPECT_EQ(answersIn(text), 100);
  EXPECT_EQ(text.substr(text.size() - 4), "last");
}

TEST_F(HttpServerTest, ReadsABodyOfManyPiecesWhateverItsContentType) {
  Client client = connect();
  const std::string body(3 << 20, 'b');
  client.send(requestTo("http://h", "POST", "/", body,
                        "Connection: close\r\n"
                        "Content-Type: application/x-www-form-urlencoded\r\n"));
  const std::string text = client.readToEnd();
  EXPECT_EQ(text.substr(text.find("\r\n\r\n") + 4), body);
}

TEST_F(HttpServerTest, LetsASenderContinueWhoAsks) {
  Client client = connect();
  client.send(
      requestTo("http://h", "POST", "/", "", "Connection: close\r\nExpect: 100-continue\r\n"));
  const std::string text = client.readToEnd();
  EXPECT_EQ(text.rfind("HTTP/1.1 100", 0), 0U);
  EXPECT_EQ(answersIn(text), 1);
}

TEST_F(HttpServerTest, RefusesAChunkedBodyAndCloses) {
  Client client = connect();
  client.send("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n");
  EXPECT_EQ(client.readToEnd().rfind("HTTP/1.1 411", 0), 0U);
}

TEST_F(HttpServerTest, RefusesALengthThatIsNoNumber) {
  Client client = connect();
  client.send("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: many\r\n\r\n");
  EXPECT_EQ(client.readToEnd().rfind("HTTP/1.1 400", 0), 0U);
}

}  // namespace
}  // namespace pelmar::service
