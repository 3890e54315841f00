#include "service/access.h"

#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

constexpr const char* kClose = "Connection: close\r\n";

class PageAccessTest : public ServiceTest {
 protected:
  Answer getWith(const std::string& host, const std::string& target, const std::string& headers) {
    return exchange(requestTo("http://" + host, "GET", target, "", headers + std::string(kClose)));
  }

  std::string authority() const { return service_->url().substr(7); }
  std::string tokenParameter() const {
    const std::string url = service_->pageUrl();
    return url.substr(url.find('?'));
  }
};

TEST_F(PageAccessTest, RefusesAHostThatIsNotItsOwnAddress) {
  const std::string port = authority().substr(authority().rfind(':'));
  EXPECT_EQ(getWith("127.0.0.1" + port, "/", "").status, 200);
  EXPECT_EQ(getWith("localhost" + port, "/", "").status, 200);
  for (const std::string& host : {std::string("evil.example") + port, std::string("127.0.0.1"),
                                  std::string("127.0.0.1:1"), std::string()}) {
    EXPECT_EQ(getWith(host, "/", "").status, 403) << host;
    EXPECT_EQ(getWith(host, "/api/local/summary" + tokenParameter(), "").status, 403) << host;
  }
  EXPECT_TRUE(service_->storedRequests().empty());
}

TEST_F(PageAccessTest, RefusesWhatAnotherSitesPageSends) {
  const std::string query = "/api/local/overview" + tokenParameter();
  EXPECT_EQ(getWith(authority(), query, "").status, 200);
  EXPECT_EQ(getWith(authority(), query, "Origin: http://" + authority() + "\r\n").status, 200);
  for (const char* own : {"same-origin", "none"}) {
    const std::string header = std::string("Sec-Fetch-Site: ") + own + "\r\n";
    EXPECT_EQ(getWith(authority(), query, header).status, 200) << own;
  }
  for (const char* foreign : {"Origin: http://evil.example\r\n", "Origin: null\r\n",
                              "Sec-Fetch-Site: cross-site\r\n", "Sec-Fetch-Site: same-site\r\n"}) {
    EXPECT_EQ(getWith(authority(), query, foreign).status, 403) << foreign;
  }
}

TEST_F(PageAccessTest, AnswersQueriesToTheTokenOrTheKeyOnly) {
  // Without these the stream of changes would never end.
  ASSERT_EQ(getWith(authority(), "/api/local/overview", "").status, 401);
  EXPECT_EQ(getWith(authority(), "/api/local/overview?token=", "").status, 401);
  EXPECT_EQ(getWith(authority(), "/api/local/overview" + tokenParameter() + "0", "").status, 401);
  EXPECT_EQ(getWith(authority(), "/api/local/changes", "").status, 401);
  EXPECT_EQ(getWith(authority(), "/api/local/export.csv", "").status, 401);
  EXPECT_EQ(getWith(authority(), "/api/local/overview" + tokenParameter(), "").status, 200);
  EXPECT_EQ(get("/api/local/overview").status, 200);
}

TEST_F(PageAccessTest, TakesNoReportForTheToken) {
  const json daily = {{"agent_slug", "agent"}, {"agent_type", "claude-cowork"}};
  const std::string path = "/api/v1/observe/runs/daily/" + tokenParameter();
  EXPECT_EQ(exchange(requestText("POST", path, compactJson(daily), kClose)).status, 401);
}

TEST_F(PageAccessTest, MakesAnotherTokenEveryTime) {
  EXPECT_EQ(newToken().size(), 32U);
  EXPECT_NE(newToken(), newToken());
}

TEST_F(PageAccessTest, ForbidsEveryScriptButThePagesOwn) {
  for (const std::string& target : {std::string("/"), "/api/local/overview" + tokenParameter()}) {
    const std::string head = getWith(authority(), target, "").head;
    EXPECT_NE(head.find("\r\nContent-Security-Policy: default-src 'none'; script-src 'self'; "
                        "style-src 'self'; connect-src 'self'; img-src 'self'; base-uri 'none'; "
                        "form-action 'none'; frame-ancestors 'none'; "
                        "require-trusted-types-for 'script'; trusted-types 'none'\r\n"),
              std::string::npos)
        << head;
    EXPECT_NE(head.find("\r\nX-Content-Type-Options: nosniff\r\n"), std::string::npos);
    EXPECT_NE(head.find("\r\nCache-Control: no-store\r\n"), std::string::npos);
    EXPECT_EQ(head.find("Access-Control-"), std::string::npos);
  }
}

TEST_F(PageAccessTest, SaysThatThePageWasNotBuiltAndWhy) {
  EXPECT_NE(getWith(authority(), "/", "").body.find("not built"), std::string::npos);
  test::writeFile(file("not-built.txt"), "npm is missing\n");
  std::string error;
  service_ =
      LocalService::start({.database = file("b.db"), .key = kKey, .page = root_.path()}, error);
  const Answer answer = getWith(authority(), "/", "");
  EXPECT_NE(answer.body.find("npm is missing\n"), std::string::npos) << answer.body;
  EXPECT_NE(answer.head.find("Content-Type: text/plain"), std::string::npos);
}

TEST_F(PageAccessTest, ServesTheFilesOfThePageAndNoOthers) {
  test::writeFile(file("index.html"), "<p>page</p>");
  test::writeFile(file("page.js"), "1;");
  test::writeFile(file("secret"), "s");
  std::string error;
  service_ =
      LocalService::start({.database = file("b.db"), .key = kKey, .page = root_.path()}, error);
  EXPECT_EQ(getWith(authority(), "/?token=any", "").body, "<p>page</p>");
  const Answer script = getWith(authority(), "/page.js", "");
  EXPECT_EQ(script.body, "1;");
  EXPECT_NE(script.head.find("Content-Type: text/javascript"), std::string::npos);
  for (const char* other : {"/secret", "/../service.db", "/b.db", "/%2e%2e/b.db"}) {
    EXPECT_EQ(getWith(authority(), other, "").status, 401) << other;
  }
}

}  // namespace
}  // namespace pelmar::service
