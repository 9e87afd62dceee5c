#include "platform/SessionActivityWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/RunLoop.h"
#include "support/Waiting.h"
#include "support/linux/PrivateSystemBus.h"

namespace ravelin::platform {
namespace {

using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionActivityWatchTest : public testing::Test {
 protected:
  /// Starts a watch, which writes down what it tells, and returns when it follows the session.
  void start() {
    watch = SessionActivityWatch::start(
        RunLoop::main(), [this](SessionNotification notice) { told.push_back(notice); });
    ASSERT_TRUE(test::runUntil([this] {
      toggle();
      return !told.empty();
    }));
    ASSERT_EQ(told.back(), SessionNotification::didBecomeActive);
    told.clear();
  }

  /// Takes the session away and back, and returns when nothing more is told of that.
  void toggle() {
    EXPECT_TRUE(bus.setActive(false));
    EXPECT_TRUE(bus.setActive(true));
    std::size_t before = 0;
    do {
      before = told.size();
      RunLoop::main().runOnce(RunLoop::Seconds(0.3));
    } while (told.size() != before);
  }

  test::PrivateSystemBus bus;
  std::vector<SessionNotification> told;
  std::unique_ptr<SessionActivityWatch> watch;
};

TEST_F(SessionActivityWatchTest, ANoticeIsDeliveredByTheLoopInATurnOfItsOwn) {
  start();
  ASSERT_TRUE(bus.setActive(false));
  const auto begin = steady_clock::now();
  RunLoop::main().runOnce(test::PATIENCE);
  EXPECT_THAT(told, ElementsAre(SessionNotification::didResignActive));
  // One thing was to be done, and then it did not wait for more.
  EXPECT_LT(steady_clock::now() - begin, test::PATIENCE);
}

TEST_F(SessionActivityWatchTest, MayBeDestroyedByWhatItCalls) {
  start();
  watch = SessionActivityWatch::start(RunLoop::main(), [this](SessionNotification notice) {
    watch.reset();
    told.push_back(notice);
  });
  EXPECT_TRUE(test::runUntil([this] {
    toggle();
    return watch == nullptr;
  }));
  toggle();
  EXPECT_EQ(told.size(), 1U);
}

}  // namespace
}  // namespace ravelin::platform
