#include "platform/SessionActivityWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "core/AgentState.h"
#include "fakes/FakeRunLoop.h"
#include "fakes/FakeWorkspace.h"
#include "platform/RunLoop.h"
#include "support/OpenWarden.h"
#include "support/TemporaryHome.h"
#include "support/Waiting.h"

namespace ravelin::platform {
namespace {

using enum SessionNotification;
using testing::ElementsAre;
using testing::IsEmpty;

class MacSessionActivityWatchTest : public testing::Test {
 protected:
  void start() {
    watch = SessionActivityWatch::start(RunLoop::main(),
                                        [this](SessionNotification what) { told.push_back(what); });
  }

  /// Has all that is under way delivered.
  static void deliver() {
    fakes::spinRunLoop(0);
    test::settle();
  }

  fakes::FakeWorkspace workspace;
  std::vector<SessionNotification> told;
  std::unique_ptr<SessionActivityWatch> watch;
};

TEST_F(MacSessionActivityWatchTest, TellsOfEachChangeInOrder) {
  start();
  std::thread([this] {
    workspace.setSessionActive(false);
    workspace.setSessionActive(true);
    workspace.setSessionActive(false);
  }).join();
  EXPECT_THAT(told, IsEmpty());
  deliver();
  EXPECT_THAT(told, ElementsAre(didResignActive, didBecomeActive, didResignActive));
}

TEST_F(MacSessionActivityWatchTest, TheStateAtTheStartIsNotTold) {
  workspace.startInBackground();
  start();
  deliver();
  EXPECT_THAT(told, IsEmpty());
  workspace.setSessionActive(true);
  deliver();
  EXPECT_THAT(told, ElementsAre(didBecomeActive));
}

TEST_F(MacSessionActivityWatchTest, NothingIsToldWhileSomethingElseRunsTheLoop) {
  start();
  workspace.setSessionActive(false);
  fakes::spinRunLoop(0.05);
  EXPECT_THAT(told, IsEmpty());
  test::settle();
  EXPECT_THAT(told, ElementsAre(didResignActive));
}

TEST_F(MacSessionActivityWatchTest, OnceDestroyedItTellsNothing) {
  start();
  workspace.setSessionActive(false);
  fakes::spinRunLoop(0);  // handed to the loop by now
  watch.reset();
  workspace.setSessionActive(true);
  deliver();
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(MacSessionActivityWatchTest, ItMayBeDestroyedByWhatItTells) {
  watch = SessionActivityWatch::start(RunLoop::main(), [this](SessionNotification what) {
    told.push_back(what);
    watch.reset();
  });
  workspace.setSessionActive(false);
  workspace.setSessionActive(true);
  deliver();
  EXPECT_THAT(told, ElementsAre(didResignActive));
}

TEST_F(MacSessionActivityWatchTest, TheAgentFollowsItsSession) {
  const test::TemporaryHome home;
  test::OpenWarden warden;
  warden._registerWorkspaceNotifications();
  gSystemActive = true;
  workspace.setSessionActive(false);
  deliver();
  EXPECT_FALSE(gSystemActive);
  workspace.setSessionActive(true);
  deliver();
  EXPECT_TRUE(gSystemActive);
  warden._unregisterWorkspaceNotifications();
  workspace.setSessionActive(false);
  deliver();
  EXPECT_TRUE(gSystemActive);
  gSystemActive = false;
}

}  // namespace
}  // namespace ravelin::platform
