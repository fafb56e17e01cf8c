// Reviews of change sets: whose turn it is, what a slice leaves, and that nothing waits for ever.

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/MachineTask.h"
#include "runtime/Review.h"

namespace reviewtest {

using Names = std::vector<std::string>;

struct Bookmark {
  VESK_STRUCT(reviewtest::Bookmark)
  VESK_MEMBER(std::uint16_t, key)
  VESK_MEMBER(std::uint16_t, number)
  [[nodiscard]] std::uint16_t subject() const { return key; }
  [[nodiscard]] std::uint16_t item() const { return number; }
  auto operator<=>(const Bookmark&) const = default;
};

/// A plain task that reviews keys with three items each, then makes one pass over all items.
class ReviewSm final : public Vesk::Machine {
  VESK_LOCAL_RECORD(reviewtest::ReviewSm)
  VESK_SET(std::uint16_t, changeSet)
  VESK_VALUE(std::optional<Bookmark>, bookmark)
  VESK_VALUE(bool, passDue)
  VESK_VALUE(std::optional<std::uint16_t>, passBookmark)
  VESK_SET(std::uint16_t, item)

  explicit ReviewSm(Sylva::TaskScheduler* scheduler)
      : task_(this, scheduler, 3, "review", Vesk::taskBody<&ReviewSm::run>) {
    for (const std::uint16_t number : {1, 2, 3})
      itemIs(number);
  }
  void note(std::uint16_t key) {
    keys_.note(key);
    task_.scheduleTask();
  }
  void forget(std::uint16_t key) { keys_.forget(key); }
  void ask() {
    pass_.ask();
    task_.scheduleTask();
  }
  [[nodiscard]] bool isDue() const { return keys_.isDue() || pass_.isDue(); }
  Names log;
  std::size_t rounds = 0;

 private:
  void run() {
    Sylva::Slice slice(task_);
    const bool finished = reviewKeys(slice) && reviewAll(slice);
    if (!finished || keys_.isDue() || pass_.isDue()) task_.scheduleTask();
  }
  bool reviewKeys(Sylva::Slice& slice) {
    if (pass_.isUnderWay()) return true;
    while (const auto place = keys_.next())
      for (const std::uint16_t number : itemIteratorFrom(place->item)) {
        if (!slice.take()) {
          keys_.stopAt({place->key, number});
          return false;
        }
        log.push_back(std::to_string(place->key) + "." + std::to_string(number));
      }
    ++rounds;
    return true;
  }
  bool reviewAll(Sylva::Slice& slice) {
    if (!pass_.begins()) return true;
    for (const std::uint16_t number : itemIteratorFrom(pass_.place())) {
      if (!slice.take()) {
        pass_.stopAt(number);
        return false;
      }
      log.push_back("all." + std::to_string(number));
    }
    pass_.ends();
    return true;
  }

  Vesk::MachineTask task_;
  Sylva::ReviewSet<changeSetTag, bookmarkTag> keys_{this};
  Sylva::ReviewPass<passDueTag, passBookmarkTag> pass_{this};
};

class ReviewTest : public testing::Test {
 protected:
  ReviewTest() { scheduler.yieldPolicyIs(&slices); }
  std::size_t count(const std::string& what) {
    return static_cast<std::size_t>(std::count(sm->log.begin(), sm->log.end(), what));
  }
  Sylva::TaskScheduler scheduler;
  Sylva::ItemYield slices{2};
  Ombra::Ptr<ReviewSm> sm = Ombra::make<ReviewSm>(&scheduler);
};

TEST_F(ReviewTest, aKeyLeavesWhenItsTurnBeginsAndItsReviewGoesOnWhereItStopped) {
  sm->note(7);
  scheduler.runUntilIdle(1);
  EXPECT_FALSE(sm->changeSetHas(7));
  ASSERT_TRUE(sm->bookmark());
  EXPECT_EQ(sm->log.size(), 2U);
  sm->note(7);  // in the middle: another look after this one
  scheduler.runUntilIdle();
  EXPECT_FALSE(sm->isDue());
  for (const char* item : {"7.1", "7.2", "7.3"})
    EXPECT_EQ(count(item), 2U) << item;
  // An item that goes behind the bookmark, or is the bookmark itself, loses no other.
  sm->log.clear();
  sm->note(8);
  scheduler.runUntilIdle(1);
  sm->itemDel(sm->bookmark()->number);
  scheduler.runUntilIdle();
  EXPECT_EQ(sm->log.size(), 2U);
  // A key that is nobody's business any more, noted or under way.
  sm->itemIs(9);
  sm->note(8);
  sm->note(9);
  scheduler.runUntilIdle(1);
  sm->forget(8);
  sm->forget(9);
  EXPECT_FALSE(sm->isDue());
}

TEST_F(ReviewTest, noStreamOfEventsKeepsAnotherKeyOrThePassWaiting) {
  for (std::uint16_t noisy = 0; noisy < 20; ++noisy) {
    sm->log.clear();
    const std::size_t rounds = sm->rounds;
    sm->note(100);
    sm->ask();
    for (int slice = 0; slice < 12; ++slice) {
      sm->note(noisy);
      sm->ask();
      scheduler.runUntilIdle(1);
    }
    for (const char* item : {"100.1", "100.2", "100.3", "all.1", "all.2", "all.3"})
      EXPECT_GE(count(item), 1U) << item << " beside " << noisy;
    EXPECT_GE(sm->rounds - rounds, 2U);
    scheduler.runUntilIdle();
    EXPECT_FALSE(sm->isDue());
  }
}

}  // namespace reviewtest
