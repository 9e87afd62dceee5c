#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "core/AgentState.h"
#include "platform/RunLoop.h"
#include "support/OpenWarden.h"
#include "support/TemporaryHome.h"
#include "support/Waiting.h"
#include "support/linux/PrivateSystemBus.h"

namespace ravelin {
namespace {

using platform::RunLoop;
using test::OpenWarden;
using test::PrivateSystemBus;

class SessionActivity : public testing::Test {
 protected:
  void TearDown() override { gSystemActive = gSystemWillTerminate = false; }

  /// As `run` sets it before it enters its loop.
  void registerAsActive() {
    warden._registerWorkspaceNotifications();
    gSystemActive = true;
  }

  /// Runs the agent, and the action on a thread of its own meanwhile.
  void duringRun(const std::function<void()>& action) {
    std::jthread thread;
    RunLoop::main().perform([&] {
      thread = std::jthread([&] {
        action();
        RunLoop::main().perform([] { gSystemWillTerminate = true; });
      });
    });
    EXPECT_EQ(warden.run(), 0);
  }

  /// The session's state reaches the agent some time after the session manager has it; only a
  /// change that has been seen tells that the agent follows it.
  static void setUntilFollowed(PrivateSystemBus& bus, bool active) {
    EXPECT_TRUE(holdsInTime([&] {
      bus.setActive(!active);
      bus.setActive(active);
      runFor(std::chrono::milliseconds(100));
      return gSystemActive == active;
    }));
  }

  static void runFor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    static_cast<void>(holdsInTime([end] { return std::chrono::steady_clock::now() > end; }));
  }

  /// On the main thread its run loop runs meanwhile.
  template <class Condition>
  static bool holdsInTime(const Condition& condition) {
    return RunLoop::main().isCurrent() ? test::runUntil(condition) : test::waitUntil(condition);
  }

  const test::TemporaryHome home;
  OpenWarden warden;
};

TEST_F(SessionActivity, AResignedSessionIsInactiveAndABecomeActiveOneIsActiveAgain) {
  PrivateSystemBus bus;
  registerAsActive();
  setUntilFollowed(bus, false);
  ASSERT_TRUE(bus.setActive(true));
  EXPECT_TRUE(test::runUntil([] { return gSystemActive.load(); }));
  ASSERT_TRUE(bus.setActive(false));
  EXPECT_TRUE(test::runUntil([] { return !gSystemActive; }));
}

TEST_F(SessionActivity, AfterUnregisteringNothingIsFollowed) {
  PrivateSystemBus bus;
  registerAsActive();
  setUntilFollowed(bus, false);
  warden._unregisterWorkspaceNotifications();
  ASSERT_TRUE(bus.setActive(true));
  runFor(std::chrono::milliseconds(300));
  EXPECT_FALSE(gSystemActive);
}

TEST_F(SessionActivity, ARunningAgentFollowsItsSessionAndNoneAfterIt) {
  PrivateSystemBus bus;
  duringRun([&] {
    EXPECT_TRUE(gSystemActive);
    setUntilFollowed(bus, false);
    setUntilFollowed(bus, true);
  });
  EXPECT_FALSE(gSystemActive);
  ASSERT_TRUE(bus.setActive(false));
  ASSERT_TRUE(bus.setActive(true));
  runFor(std::chrono::milliseconds(300));
  EXPECT_FALSE(gSystemActive);
}

TEST_F(SessionActivity, AnAgentThatStartsInTheBackgroundIsActiveUntilItsSessionResigns) {
  PrivateSystemBus bus;
  ASSERT_TRUE(bus.setActive(false));
  duringRun([&] {
    EXPECT_TRUE(gSystemActive);
    runFor(std::chrono::seconds(1));
    EXPECT_TRUE(gSystemActive);
    setUntilFollowed(bus, false);
  });
}

TEST_F(SessionActivity, WithoutABusTheFlagStaysSilently) {
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  testing::internal::CaptureStderr();
  registerAsActive();
  runFor(std::chrono::milliseconds(200));
  EXPECT_TRUE(gSystemActive);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(SessionActivity, ABusThatGoesAwayAndComesBackIsFollowedAgain) {
  PrivateSystemBus bus;
  registerAsActive();
  setUntilFollowed(bus, false);
  bus.stop();
  runFor(std::chrono::milliseconds(200));
  EXPECT_FALSE(gSystemActive);
  bus.start();
  // The session is active on the new bus, without a notice of it.
  EXPECT_TRUE(test::runUntil([] { return gSystemActive.load(); }, std::chrono::seconds(30)));
  ASSERT_TRUE(bus.setActive(false));
  EXPECT_TRUE(test::runUntil([] { return !gSystemActive; }));
}

}  // namespace
}  // namespace ravelin
