#include "service/store.h"

#include <thread>

#include "service/database.h"
#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

class StoreTest : public testing::Test {
 protected:
  // A request of its own. False when the store refused.
  bool addHeartbeat() {
    return store_->begin() &&
           store_->addHeartbeat("agent", {{"source", "w"}, {"machine_id", "m"}}, TimePoint()) &&
           store_->commit();
  }

  // How many heartbeats other readers of the file see.
  std::int64_t seenByOthers() {
    return other_.prepare("SELECT count(*) FROM heartbeats").integer().value_or(-1);
  }

  const test::TempRoot root_;
  const std::string file_ = root_.path() + "/store.db";
  std::string error_;
  std::unique_ptr<Store> store_ = Store::open(file_, error_);
  Database other_{file_};
};

TEST_F(StoreTest, ShowsAHundredRequestsToOthersWhenTheNextBegins) {
  ASSERT_NE(store_, nullptr) << error_;
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(addHeartbeat());
  EXPECT_EQ(seenByOthers(), 0);
  ASSERT_TRUE(addHeartbeat());
  EXPECT_EQ(seenByOthers(), 100);
}

TEST_F(StoreTest, ShowsEverythingToOthersOnceFlushed) {
  ASSERT_NE(store_, nullptr) << error_;
  EXPECT_FALSE(store_->isUnflushed());
  ASSERT_TRUE(addHeartbeat());
  EXPECT_TRUE(store_->isUnflushed());
  store_->flush();
  EXPECT_FALSE(store_->isUnflushed());
  EXPECT_EQ(seenByOthers(), 1);
}

TEST_F(StoreTest, TakesBackOneRequestAndKeepsItsNeighbours) {
  ASSERT_NE(store_, nullptr) << error_;
  ASSERT_TRUE(addHeartbeat());
  ASSERT_TRUE(store_->begin());
  ASSERT_TRUE(store_->addHeartbeat("gone", {{"source", "w"}, {"machine_id", "m"}}, TimePoint()));
  store_->rollback();
  ASSERT_TRUE(addHeartbeat());
  store_->flush();
  EXPECT_EQ(seenByOthers(), 2);
  EXPECT_EQ(other_.prepare("SELECT count(*) FROM heartbeats WHERE agent_slug = 'gone'").integer(),
            0);
}

TEST_F(StoreTest, RefusesAFileOfAnotherVersion) {
  store_.reset();
  ASSERT_TRUE(other_.execute("PRAGMA user_version = 99"));
  EXPECT_EQ(Store::open(file_, error_), nullptr);
  EXPECT_EQ(error_, "the file holds tables of another version");
}

TEST_F(ServiceTest, ShowsARequestToOthersWithoutAnotherOneComing) {
  newRun();
  Database other(file("service.db"));
  Statement runs = other.prepare("SELECT count(*) FROM runs");
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (runs.integer() != 1 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(runs.integer(), 1);
}

}  // namespace
}  // namespace pelmar::service
