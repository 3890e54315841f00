#include "platform/url.h"

#include <gtest/gtest.h>

namespace pelmar {
namespace {

TEST(IsUrl, TakesUrlsAndRelativeReferences) {
  for (const auto* text :
       {"http://example.com", "https://example.com/", "HTTP://EXAMPLE.COM/A", "http://h:8080/a/b/",
        "http://h/?a=b&c=d#e", "http://user:word@h/", "http://[::1]:80/", "http://h/a%20b",
        "http://h/!$&'()*+,;=:@-._~", "ftp://h/file", "example.com/api", "/api/v1/", "api"}) {
    EXPECT_TRUE(isUrl(text)) << text;
  }
}

TEST(IsUrl, RefusesTextsThatNoUrlMayHold) {
  for (const auto* text : {"",
                           " ",
                           "http://h/a b",
                           " http://h",
                           "http://h ",
                           "http://h/\n",
                           "http://h/\t",
                           "http://h/\x7F",
                           "http://h/\xC3\xA9",
                           "http://\xC3\xA9/",
                           "http://h/<x>",
                           "http://h/\"",
                           "http://h/a\\b",
                           "http://h/^",
                           "http://h/`",
                           "http://h/{x}",
                           "http://h/a|b",
                           "http://h/%",
                           "http://h/%4",
                           "http://h/%zz",
                           "http://h/%4",
                           "http://[::1",
                           "http://h:port/"}) {
    EXPECT_FALSE(isUrl(text)) << text;
  }
  EXPECT_FALSE(isUrl(std::string("http://h/\0", 10)));
}

TEST(IsHttpUrl, TakesTheTwoSchemesInAnyCase) {
  for (const auto* text : {"http://h", "https://h/", "HTTP://h", "HttpS://h:1/x?y#z"}) {
    EXPECT_TRUE(isHttpUrl(text)) << text;
  }
  for (const auto* text : {"", "h", "h/path", "//h/path", "/path", "localhost:8080", "ftp://h/",
                           "file:///etc/hosts", "ws://h/", "mailto:a@b", "http://", "httpx://h"}) {
    EXPECT_FALSE(isHttpUrl(text)) << text;
  }
}

struct Base {
  const char* base;
  const char* url;  // "none" when there is no answer
};

void expectBelow(const Base& row) {
  EXPECT_EQ(urlBelow(row.base, "api/config/", "process", "Cowork").value_or("none"), row.url)
      << row.base;
}

TEST(UrlBelow, AppendsThePathBehindExactlyOneSlash) {
  constexpr Base kBases[] = {
      {"http://h", "http://h/api/config/?process=Cowork"},
      {"http://h/", "http://h/api/config/?process=Cowork"},
      {"http://h/base", "http://h/base/api/config/?process=Cowork"},
      {"http://h/base/", "http://h/base/api/config/?process=Cowork"},
      {"https://h:8443/a/b/", "https://h:8443/a/b/api/config/?process=Cowork"},
      {"http://[::1]:80", "http://[::1]:80/api/config/?process=Cowork"},
      {"http://user:word@h/b", "http://user:word@h/b/api/config/?process=Cowork"},
  };
  for (const auto& row : kBases) expectBelow(row);
}

TEST(UrlBelow, LeavesThePathOfTheBaseAsItIsWritten) {
  constexpr Base kBases[] = {
      {"http://h/a%20b", "http://h/a%20b/api/config/?process=Cowork"},
      {"http://h/a%2Fb", "http://h/a%2Fb/api/config/?process=Cowork"},
      {"http://h/a//b", "http://h/a//b/api/config/?process=Cowork"},
      {"http://h/a/../b", "http://h/a/../b/api/config/?process=Cowork"},
      {"http://h/a/.", "http://h/a/./api/config/?process=Cowork"},
  };
  for (const auto& row : kBases) expectBelow(row);
}

TEST(UrlBelow, ReplacesTheQueryAndKeepsTheFragment) {
  constexpr Base kBases[] = {
      {"http://h?x=1", "http://h/api/config/?process=Cowork"},
      {"http://h/?", "http://h/api/config/?process=Cowork"},
      {"http://h/base?process=Other&y=/2/", "http://h/base/api/config/?process=Cowork"},
      {"http://h/base#part", "http://h/base/api/config/?process=Cowork#part"},
      {"http://h/base/?x#a?b/", "http://h/base/api/config/?process=Cowork#a?b/"},
  };
  for (const auto& row : kBases) expectBelow(row);
}

TEST(UrlBelow, RefusesWhatIsNoAbsoluteHttpUrl) {
  for (const auto* base : {"", "h", "h/base", "/base", "//h/base", "ftp://h/", "file:///base",
                           "http://", "http://h/a b", " http://h", "http://h/\xC3\xA9",
                           "http://\xC3\xA9", "http://h/%zz", "http://[::1"}) {
    expectBelow({base, "none"});
  }
}

TEST(UrlBelow, PercentEncodesTheQuery) {
  constexpr Base kValues[] = {
      {"Cowork", "http://h/p?k=Cowork"},   {"", "http://h/p?k="},
      {"a b", "http://h/p?k=a%20b"},       {"a+b", "http://h/p?k=a%2Bb"},
      {"a&b=c", "http://h/p?k=a%26b%3Dc"}, {"#100%", "http://h/p?k=%23100%25"},
      {"%41", "http://h/p?k=%2541"},       {"-._~", "http://h/p?k=-._~"},
      {"\xC3\xA9", "http://h/p?k=%C3%A9"},
  };
  for (const auto& [value, url] : kValues) {
    EXPECT_EQ(urlBelow("http://h", "p", "k", value).value_or("none"), url) << value;
  }
  EXPECT_EQ(urlBelow("http://h", "p", "a b", "").value_or("none"), "http://h/p?a%20b=");
}

}  // namespace
}  // namespace pelmar
