#include "config/pelmar_config.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/environment_variable.h"
#include "tests/support/raw_server.h"
#include "tests/support/temp_root.h"

namespace pelmar {

void PrintTo(const Profile& profile, std::ostream* out) {
  *out << profile.name << " url=" << profile.apiUrl << " key=" << profile.apiKey
       << " slug=" << profile.agentSlug.value_or("(none)")
       << " tenant=" << profile.tenant.value_or("(none)");
}

namespace {

using test::answering;
using test::RawServer;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::Optional;

constexpr auto* kDefaultSection = "[default]\napi_url = http://d\napi_key = dk\n";
constexpr auto* kManaged = R"({"api_url":"http://m","api_key":"mk"})";
const Profile kDefaultProfile = {.name = "default", .apiUrl = "http://d", .apiKey = "dk"};
const Profile kManagedProfile = {.name = "managed", .apiUrl = "http://m", .apiKey = "mk"};

class PelmarConfigTest : public testing::Test {
 protected:
  void writeConfig(const std::string& text) const {
    test::writeFile(root_.home() + "/.pelmar/config", text);
  }
  void writeManaged(const std::string& text) const {
    test::writeFile(root_.setup() + "/enroll-config.json", text);
  }
  void enrollDevice(const RawServer& server) const {
    test::writeFile(root_.setup() + "/device-identity.json",
                    R"({"device_token":"t","tenant_slug":"s","api_url":")" + server.url() + "\"}");
  }

  test::TempRoot root_;
  test::EnvironmentVariable key_{"PELMAR_API_KEY", std::nullopt};
};

std::string completeSection(const std::string& name) {
  std::string text = "[";
  text.append(name).append("]\napi_url = http://d\napi_key = dk\n");
  return text;
}

// The value of "process" in each request.
std::vector<std::string> processesAskedFor(const RawServer& server) {
  std::vector<std::string> processes;
  for (const auto& [bytes, connection] : server.requests()) {
    const auto begin = bytes.find("?process=") + 9;
    processes.push_back(bytes.substr(begin, bytes.find(' ', begin) - begin));
  }
  return processes;
}

std::optional<Profile> loadFirst() {
  return PelmarConfig::loadFirstProfile({"claude-cowork", "claude-code", "tandem", "default"});
}

using ConfigPath = PelmarConfigTest;

TEST_F(ConfigPath, LiesInTheHomeFolderAndIsNotCreated) {
  EXPECT_EQ(PelmarConfig::configPath(), root_.home() + "/.pelmar/config");
  PelmarConfig::resolveProfile();
  EXPECT_FALSE(std::filesystem::exists(root_.home() + "/.pelmar"));
}

using LoadFirstProfile = PelmarConfigTest;

TEST_F(LoadFirstProfile, TakesTheFirstPreferredSectionWhateverItsPlaceInTheFile) {
  std::string config;
  for (const std::string name : {"default", "tandem", "claude-code", "claude-cowork"}) {
    config += completeSection(name);
    writeConfig(config);
    EXPECT_THAT(loadFirst(),
                Optional(Eq(Profile{.name = name, .apiUrl = "http://d", .apiKey = "dk"})));
  }
  EXPECT_EQ(PelmarConfig::loadFirstProfile({"tandem", "default"})->name, "tandem");
  EXPECT_EQ(PelmarConfig::loadFirstProfile({}), std::nullopt);
}

TEST_F(LoadFirstProfile, TakesSlugAndTenantWhereTheyAreWritten) {
  writeConfig("[default]\napi_url = u\napi_key = k\nagent_slug = a\ntenant = t\nother = ignored\n");
  EXPECT_THAT(
      loadFirst(),
      Optional(Eq(Profile{
          .name = "default", .apiUrl = "u", .apiKey = "k", .agentSlug = "a", .tenant = "t"})));
  writeConfig("[default]\napi_url = u\napi_key = k\nagent_slug =\ntenant =\n");
  EXPECT_THAT(
      loadFirst(),
      Optional(Eq(Profile{
          .name = "default", .apiUrl = "u", .apiKey = "k", .agentSlug = "", .tenant = ""})));
}

TEST_F(LoadFirstProfile, PassesOverSectionsWithoutUrlOrKey) {
  for (const std::string section : {
           "api_url = http://c\napi_key =\n",
           "api_url = http://c\napi_key = \"\"\n",
           "api_url =\napi_key = ck\n",
           "api_url = http://c\n",
           "api_key = ck\n",
           "API_URL = http://c\nAPI_KEY = ck\n",
           "",
       }) {
    writeConfig("[claude-cowork]\n" + section + kDefaultSection);
    EXPECT_THAT(loadFirst(), Optional(Eq(kDefaultProfile))) << section;
  }
}

TEST_F(LoadFirstProfile, TakesNoOtherSection) {
  for (const auto* name : {"other", "Default", "", "defaults"}) {
    writeConfig(completeSection(name));
    EXPECT_EQ(loadFirst(), std::nullopt) << name;
  }
}

TEST_F(LoadFirstProfile, CountsOnlyTheKeysBehindTheLastHeaderOfASection) {
  writeConfig("[default]\napi_url = http://d\napi_key = dk\n[default]\napi_key = new\n");
  EXPECT_EQ(loadFirst(), std::nullopt);
}

TEST_F(LoadFirstProfile, IsNoneWhereTheFileCannotBeReadAsText) {
  EXPECT_EQ(loadFirst(), std::nullopt);
  writeConfig(std::string(kDefaultSection) + "# \xFF\n");
  EXPECT_EQ(loadFirst(), std::nullopt);
  writeConfig("[default]\r\napi_url = http://d\r\napi_key = dk\r\n");
  EXPECT_EQ(loadFirst(), std::nullopt);
  std::filesystem::remove(PelmarConfig::configPath());
  std::filesystem::create_directory(PelmarConfig::configPath());
  EXPECT_EQ(loadFirst(), std::nullopt);
}

TEST_F(LoadFirstProfile, PrefersTheDeviceToTheFile) {
  writeConfig(kDefaultSection);
  RawServer server({answering(
      "200 OK",
      R"({"api_url":"http://x","upload_api_key":"uk","agent_slug":"a","agent_type":"t"})")});
  enrollDevice(server);
  EXPECT_THAT(loadFirst(),
              Optional(Eq(Profile{
                  .name = "device", .apiUrl = "http://x", .apiKey = "uk", .agentSlug = "a"})));
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork"));
}

TEST_F(LoadFirstProfile, AsksForClaudeWhenCoworkHasNoAgent) {
  RawServer server({answering("200 OK", R"({"upload_api_key":"first"})"),
                    answering("200 OK", R"({"upload_api_key":"uk","agent_slug":"a"})")});
  enrollDevice(server);
  EXPECT_THAT(loadFirst(),
              Optional(Eq(Profile{
                  .name = "device", .apiUrl = server.url(), .apiKey = "uk", .agentSlug = "a"})));
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork", "Claude"));
}

TEST_F(LoadFirstProfile, PassesAnEmptyUrlOfTheDeviceOn) {
  RawServer server(
      {answering("200 OK", R"({"api_url":"","upload_api_key":"uk","agent_slug":"a"})")});
  enrollDevice(server);
  EXPECT_THAT(
      loadFirst(),
      Optional(Eq(Profile{.name = "device", .apiUrl = "", .apiKey = "uk", .agentSlug = "a"})));
}

TEST_F(LoadFirstProfile, FallsBackToTheFileWhenNeitherProcessHasAnAgent) {
  writeConfig(kDefaultSection);
  RawServer server({answering("404 Not Found", ""),
                    answering("200 OK", R"({"upload_api_key":"uk","agent_slug":""})")});
  enrollDevice(server);
  EXPECT_THAT(loadFirst(), Optional(Eq(kDefaultProfile)));
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork", "Claude"));
}

TEST_F(LoadFirstProfile, AsksNoDeviceWhileTheKeyVariableIsSet) {
  writeConfig(kDefaultSection);
  RawServer server({answering("200 OK", R"({"upload_api_key":"uk","agent_slug":"a"})")});
  enrollDevice(server);
  const test::EnvironmentVariable key("PELMAR_API_KEY", "any");
  EXPECT_THAT(loadFirst(), Optional(Eq(kDefaultProfile)));
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(LoadFirstProfile, AsksTheDeviceWhileTheKeyVariableIsEmpty) {
  writeConfig(kDefaultSection);
  RawServer server({answering("200 OK", R"({"upload_api_key":"uk","agent_slug":"a"})")});
  enrollDevice(server);
  const test::EnvironmentVariable key("PELMAR_API_KEY", "");
  EXPECT_EQ(loadFirst()->name, "device");
}

using ManagedProfile = PelmarConfigTest;

TEST_F(ManagedProfile, HoldsUrlAndKeyOnly) {
  writeManaged(kManaged);
  EXPECT_THAT(PelmarConfig::managedProfile(), Optional(Eq(kManagedProfile)));
  writeManaged(R"({"api_url":"http://m","api_key":"mk","agent_slug":"a","tenant":"t","x":[1]})");
  EXPECT_THAT(PelmarConfig::managedProfile(), Optional(Eq(kManagedProfile)));
}

TEST_F(ManagedProfile, IsNoneWithoutAValidFile) {
  EXPECT_EQ(PelmarConfig::managedProfile(), std::nullopt);
  for (const auto* text : {
           "",
           "{",
           "[]",
           R"([{"api_url":"u","api_key":"k"}])",
           R"({"api_url":"","api_key":"k"})",
           R"({"api_url":"u","api_key":""})",
           R"({"api_url":"u"})",
           R"({"api_key":"k"})",
           R"({"api_url":1,"api_key":"k"})",
           R"({"api_url":"u","api_key":null})",
           R"({"api_url":["u"],"api_key":"k"})",
           R"({"api_url":"u","api_key":true})",
           R"({"API_URL":"u","API_KEY":"k"})",
       }) {
    writeManaged(text);
    EXPECT_EQ(PelmarConfig::managedProfile(), std::nullopt) << text;
  }
}

TEST_F(ManagedProfile, AsksNoService) {
  RawServer server({});
  enrollDevice(server);
  writeManaged(kManaged);
  EXPECT_THAT(PelmarConfig::managedProfile(), Optional(Eq(kManagedProfile)));
  EXPECT_EQ(server.connectionCount(), 0U);
}

using ResolveProfile = PelmarConfigTest;

TEST_F(ResolveProfile, IsNoneWithoutAnySource) {
  EXPECT_EQ(PelmarConfig::resolveProfile(), std::nullopt);
}

TEST_F(ResolveProfile, PrefersTheDeviceToAllOthers) {
  writeConfig(std::string(kDefaultSection) + "agent_slug = a\n");
  writeManaged(kManaged);
  RawServer server({answering("200 OK", R"({"upload_api_key":"uk","agent_slug":"a"})")});
  enrollDevice(server);
  EXPECT_EQ(PelmarConfig::resolveProfile()->name, "device");
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork"));
}

TEST_F(ResolveProfile, PrefersTheSectionsInTheirFixedOrder) {
  std::string config = completeSection("other");
  for (const std::string name : {"default", "tandem", "claude-code", "claude-cowork"}) {
    config += completeSection(name);
    writeConfig(config);
    EXPECT_EQ(PelmarConfig::resolveProfile()->name, name);
  }
}

TEST_F(ResolveProfile, PrefersASectionWithASlugToTheManagedFile) {
  writeConfig(std::string(kDefaultSection) + "agent_slug = a\n");
  writeManaged(kManaged);
  EXPECT_EQ(PelmarConfig::resolveProfile()->name, "default");
}

TEST_F(ResolveProfile, PrefersTheManagedFileToASectionWithoutASlug) {
  writeManaged(kManaged);
  for (const auto* slug : {"", "agent_slug =\n", "agent_slug = \"\"\n"}) {
    writeConfig(std::string("[tandem]\napi_url = u\napi_key = k\n") + slug);
    EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kManagedProfile))) << slug;
  }
}

TEST_F(ResolveProfile, DoesNotLookForASlugInALaterSection) {
  writeConfig(std::string("[claude-code]\napi_url = u\napi_key = k\n") + kDefaultSection +
              "agent_slug = a\n");
  EXPECT_EQ(PelmarConfig::resolveProfile()->name, "claude-code");
  writeManaged(kManaged);
  EXPECT_EQ(PelmarConfig::resolveProfile()->name, "managed");
}

TEST_F(ResolveProfile, TakesASectionWithoutASlugWhenNothingElseApplies) {
  writeConfig(kDefaultSection);
  EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kDefaultProfile)));
  writeManaged(R"({"api_url":"","api_key":"mk"})");
  EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kDefaultProfile)));
}

TEST_F(ResolveProfile, TakesTheManagedFileAlone) {
  writeManaged(kManaged);
  EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kManagedProfile)));
  const test::EnvironmentVariable key("PELMAR_API_KEY", "any");
  EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kManagedProfile)));
}

TEST_F(ResolveProfile, AsksTheDeviceAgainBeforeItSettlesForNoSlug) {
  writeConfig(kDefaultSection);
  RawServer server({answering("404 Not Found", ""), answering("404 Not Found", ""),
                    answering("404 Not Found", ""), answering("404 Not Found", "")});
  enrollDevice(server);
  EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kDefaultProfile)));
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork", "Claude", "Cowork", "Claude"));
}

TEST_F(ResolveProfile, TakesTheDeviceThatAnswersTheSecondTime) {
  RawServer server({answering("404 Not Found", ""), answering("404 Not Found", ""),
                    answering("200 OK", R"({"upload_api_key":"uk","agent_slug":"a"})")});
  enrollDevice(server);
  EXPECT_EQ(PelmarConfig::resolveProfile()->name, "device");
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork", "Claude", "Cowork"));
}

TEST_F(ResolveProfile, AsksTheDeviceOnceWhenTheManagedFileApplies) {
  writeManaged(kManaged);
  RawServer server({answering("404 Not Found", ""), answering("404 Not Found", "")});
  enrollDevice(server);
  EXPECT_THAT(PelmarConfig::resolveProfile(), Optional(Eq(kManagedProfile)));
  EXPECT_THAT(processesAskedFor(server), ElementsAre("Cowork", "Claude"));
}

TEST_F(ResolveProfile, ReadsTheFilesAnew) {
  writeConfig(kDefaultSection);
  EXPECT_EQ(PelmarConfig::resolveProfile()->apiKey, "dk");
  writeConfig("[default]\napi_url = http://d\napi_key = changed\n");
  EXPECT_EQ(PelmarConfig::resolveProfile()->apiKey, "changed");
}

}  // namespace
}  // namespace pelmar
