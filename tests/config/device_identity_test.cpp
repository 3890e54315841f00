#include "config/device_identity.h"

#include <gmock/gmock.h>

#include "tests/support/raw_server.h"
#include "tests/support/temp_root.h"

namespace pelmar::DeviceIdentity {

void PrintTo(const Resolved& resolved, std::ostream* out) {
  *out << "url=" << resolved.apiUrl << " key=" << resolved.uploadKey
       << " slug=" << resolved.agentSlug << " type=" << resolved.agentType;
}

namespace {

using test::After;
using test::answering;
using test::RawAnswer;
using test::RawServer;
using ::testing::Eq;
using ::testing::Optional;
using ::testing::StartsWith;

constexpr auto* kAnswer = R"({"upload_api_key":"uk","agent_slug":"a"})";

class ResolveDevice : public testing::Test {
 protected:
  void writeIdentity(const std::string& text) const {
    test::writeFile(root_.setup() + "/device-identity.json", text);
  }
  void enroll(const std::string& apiUrl) const {
    writeIdentity(R"({"device_token":"token-1","tenant_slug":"tenant-1","api_url":")" + apiUrl +
                  "\"}");
  }

  std::optional<Resolved> resolvedFrom(const RawAnswer& answer) const {
    RawServer server({answer});
    enroll(server.url());
    return resolve("Cowork");
  }

  std::string requestFor(const std::string& base, const std::string& process) const {
    RawServer server({answering("200 OK", kAnswer)});
    enroll(server.url(base));
    EXPECT_TRUE(resolve(process)) << base;
    return server.requests().empty() ? "no request" : server.requests()[0].bytes;
  }

 private:
  test::TempRoot root_;
};

TEST_F(ResolveDevice, SendsOneGetWithTheTwoHeadersOfTheIdentity) {
  RawServer server({answering("200 OK", kAnswer)});
  enroll(server.url());
  EXPECT_TRUE(resolve("Cowork"));
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].bytes,
            "GET /api/pelmar/v1/endpoint/agent-config/?process=Cowork HTTP/1.1\r\n"
            "Host: " +
                server.authority() +
                "\r\n"
                "X-Pel-Device: token-1\r\n"
                "X-Pel-Tenant: tenant-1\r\n"
                "\r\n");
}

TEST_F(ResolveDevice, AppendsThePathToThatOfTheBaseAndReplacesItsQuery) {
  const struct {
    const char* base;
    const char* target;
  } kBases[] = {
      {"", "/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"/", "/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"/base", "/base/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"/base/", "/base/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"/a%20b/c", "/a%20b/c/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"/base?process=Other&x=1", "/base/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"?x=1", "/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
      {"/base#part", "/base/api/pelmar/v1/endpoint/agent-config/?process=Claude"},
  };
  for (const auto& [base, target] : kBases) {
    EXPECT_THAT(requestFor(base, "Claude"),
                StartsWith("GET " + std::string(target) + " HTTP/1.1\r\n"))
        << base;
  }
}

TEST_F(ResolveDevice, PercentEncodesTheProcess) {
  EXPECT_THAT(requestFor("", "a b&c=d#\xC3\xA9"),
              StartsWith("GET /api/pelmar/v1/endpoint/agent-config/"
                         "?process=a%20b%26c%3Dd%23%C3%A9 HTTP/1.1\r\n"));
}

TEST_F(ResolveDevice, TakesAllFourValuesOfTheAnswer) {
  EXPECT_THAT(
      resolvedFrom(answering("200 OK", R"({"api_url":"http://other","upload_api_key":"uk",)"
                                       R"("agent_slug":"a","agent_type":"t","x":{}})")),
      Optional(Eq(Resolved{
          .apiUrl = "http://other", .uploadKey = "uk", .agentSlug = "a", .agentType = "t"})));
}

TEST_F(ResolveDevice, LeavesEmptyWhatTheAnswerLacks) {
  RawServer server({answering("200 OK", R"({"upload_api_key":"uk"})"),
                    answering("200 OK", R"({"upload_api_key":"uk","agent_slug":1,)"
                                        R"("agent_type":null,"api_url":false})")});
  enroll(server.url("/base/"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(
        resolve("Cowork"),
        Optional(Eq(Resolved{
            .apiUrl = server.url("/base/"), .uploadKey = "uk", .agentSlug = "", .agentType = ""})));
  }
}

TEST_F(ResolveDevice, TakesAnEmptyUrlOfTheAnswer) {
  EXPECT_THAT(
      resolvedFrom(answering("200 OK", R"({"api_url":"","upload_api_key":"uk"})")),
      Optional(Eq(Resolved{.apiUrl = "", .uploadKey = "uk", .agentSlug = "", .agentType = ""})));
}

TEST_F(ResolveDevice, IsNoneForAnyStatusBut200) {
  for (const auto* status : {"201 Created", "202 Accepted", "204 No Content", "206 Partial Content",
                             "299 Odd", "302 Found", "304 Not Modified", "400 Bad Request",
                             "401 Unauthorized", "404 Not Found", "500 Error"}) {
    EXPECT_EQ(resolvedFrom(answering(status, kAnswer)), std::nullopt) << status;
  }
}

TEST_F(ResolveDevice, IsNoneForAnyBodyWithoutAnUploadKey) {
  for (const auto* body : {
           "",
           "garbage",
           "{",
           "[]",
           "null",
           R"([{"upload_api_key":"uk"}])",
           "{}",
           R"({"upload_api_key":""})",
           R"({"upload_api_key":1})",
           R"({"upload_api_key":null})",
           R"({"upload_api_key":["uk"]})",
           R"({"UPLOAD_API_KEY":"uk"})",
           "{\"upload_api_key\":\"\xFF\"}",
       }) {
    EXPECT_EQ(resolvedFrom(answering("200 OK", body)), std::nullopt) << body;
  }
}

TEST_F(ResolveDevice, IsNoneWhenTheExchangeFails) {
  EXPECT_EQ(resolvedFrom({.after = After::close}), std::nullopt);
  EXPECT_EQ(resolvedFrom({.bytes = "garbage\r\n\r\n", .after = After::close}), std::nullopt);
  // Enough of a body to be JSON, and not all that was announced.
  EXPECT_EQ(resolvedFrom(
                {.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n" + std::string(kAnswer),
                 .after = After::close}),
            std::nullopt);
}

// Lasts as long as the service is waited for.
TEST_F(ResolveDevice, IsNoneWhenTheServiceNeverAnswers) {
  EXPECT_EQ(resolvedFrom(RawAnswer{}), std::nullopt);
}

TEST_F(ResolveDevice, AsksAgainEachTime) {
  RawServer server({answering("200 OK", kAnswer), answering("404 Not Found", ""),
                    answering("200 OK", R"({"upload_api_key":"changed"})")});
  enroll(server.url());
  EXPECT_EQ(resolve("Cowork")->uploadKey, "uk");
  EXPECT_EQ(resolve("Cowork"), std::nullopt);
  EXPECT_EQ(resolve("Cowork")->uploadKey, "changed");
  EXPECT_EQ(server.requests().size(), 3U);
}

TEST_F(ResolveDevice, SendsNothingWithoutAWholeIdentity) {
  EXPECT_EQ(resolve("Cowork"), std::nullopt);
  RawServer server({answering("200 OK", kAnswer)});
  const std::string url = "\"api_url\":\"" + server.url() + "\"";
  const std::string identities[] = {
      "",
      "{",
      R"([{"device_token":"t","tenant_slug":"s",)" + url + "}]",
      R"({"tenant_slug":"s",)" + url + "}",
      R"({"device_token":"","tenant_slug":"s",)" + url + "}",
      R"({"device_token":1,"tenant_slug":"s",)" + url + "}",
      R"({"device_token":"t",)" + url + "}",
      R"({"device_token":"t","tenant_slug":"",)" + url + "}",
      R"({"device_token":"t","tenant_slug":null,)" + url + "}",
      R"({"device_token":"t\r\nX-Forged: 1","tenant_slug":"s",)" + url + "}",
      R"({"device_token":"t","tenant_slug":"s\n",)" + url + "}",
      R"({"device_token":"t","tenant_slug":"s"})",
      R"({"device_token":"t","tenant_slug":"s","api_url":""})",
      R"({"device_token":"t","tenant_slug":"s","api_url":[]})",
      R"({"device_token":"t","tenant_slug":"s","api_url":")" + server.authority() + "\"}",
      R"({"device_token":"t","tenant_slug":"s","api_url":"http:// )" + server.authority() + "\"}",
      R"({"device_token":"t","tenant_slug":"s","api_url":"ftp://)" + server.authority() + "\"}",
  };
  for (const auto& identity : identities) {
    writeIdentity(identity);
    EXPECT_EQ(resolve("Cowork"), std::nullopt) << identity;
  }
  EXPECT_EQ(server.connectionCount(), 0U);

  writeIdentity(R"({"device_token":"t","tenant_slug":"s","other":[],)" + url + "}");
  EXPECT_TRUE(resolve("Cowork"));
}

}  // namespace
}  // namespace pelmar::DeviceIdentity
