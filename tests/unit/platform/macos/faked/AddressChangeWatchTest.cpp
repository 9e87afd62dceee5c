#include "platform/AddressChangeWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "fakes/FakeDynamicStore.h"
#include "fakes/FakeRunLoop.h"
#include "platform/RunLoop.h"
#include "support/Waiting.h"

namespace ravelin::platform {
namespace {

using fakes::FakeDynamicStore;
using testing::ElementsAre;

class MacAddressChangeWatchTest : public testing::Test {
 protected:
  std::unique_ptr<AddressChangeWatch> start() {
    return AddressChangeWatch::start(RunLoop::main(), [this] { ++calls; }, reason);
  }

  /// How often it has told after all that is under way.
  int told() {
    // The system's notice, then the loop's own delivery of it.
    fakes::spinRunLoop(0);
    test::settle();
    return calls;
  }

  FakeDynamicStore store;
  std::string reason;
  int calls = 0;
};

TEST_F(MacAddressChangeWatchTest, TellsOfTheIpv4KeysOfInterfacesAndOfNoOthers) {
  const auto watch = start();
  ASSERT_NE(watch, nullptr);
  EXPECT_THAT(store.names(), ElementsAre("RavelinDisk"));
  for (const char* const other :
       {"State:/Network/Interface/en0/IPv6", "State:/Network/Interface/en0/Link",
        "State:/Network/Interface/en0/IPv4/x", "Setup:/Network/Interface/en0/IPv4",
        "x State:/Network/Interface/en0/IPv4", "State:/Network/Global/IPv4",
        "State:/Network/Interface/IPv4"}) {
    store.set(other, "1");
    EXPECT_EQ(told(), 0) << other;
  }
  int expected = 0;
  for (const char* const name : {"en0", "utun12", "bridge 0"}) {
    const std::string key = std::string("State:/Network/Interface/") + name + "/IPv4";
    store.set(key, "1");
    EXPECT_EQ(told(), ++expected) << name;
    store.remove(key);
    EXPECT_EQ(told(), ++expected) << name;
  }
  EXPECT_FALSE(watch->membershipsMayBeLost());
}

TEST_F(MacAddressChangeWatchTest, ChangesThatComeTogetherAreToldOnce) {
  const auto watch = start();
  std::thread([this] {
    store.set("State:/Network/Interface/en0/IPv4", "1");
    store.set("State:/Network/Interface/en1/IPv4", "1");
    store.remove("State:/Network/Interface/en0/IPv4");
  }).join();
  EXPECT_EQ(told(), 1);
}

TEST_F(MacAddressChangeWatchTest, WhatChangesBeforeTheLoopRunsIsTold) {
  const auto watch = start();
  store.set("State:/Network/Interface/en0/IPv4", "1");
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(test::runUntil([this] { return calls == 1; }));
}

TEST_F(MacAddressChangeWatchTest, NothingIsToldWhileSomethingElseRunsTheLoop) {
  const auto watch = start();
  store.set("State:/Network/Interface/en0/IPv4", "1");
  fakes::spinRunLoop(0.05);
  EXPECT_EQ(calls, 0);
  test::settle();
  EXPECT_EQ(calls, 1);
}

TEST_F(MacAddressChangeWatchTest, ARefusalHasTheSystemsReason) {
  store.refuseKeys(FakeDynamicStore::FAILED);
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(reason, "Failed!");
  store.refuseKeys(FakeDynamicStore::OK);
  store.refuseSessions(FakeDynamicStore::NO_STORE_SESSION);
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(reason, "Configuration daemon session not active");
  EXPECT_EQ(told(), 0);  // by then no session of another test's is left either
  EXPECT_EQ(store.sessions(), 0);
}

TEST_F(MacAddressChangeWatchTest, OnceDestroyedItTellsNothing) {
  auto watch = start();
  store.set("State:/Network/Interface/en0/IPv4", "1");
  watch.reset();
  EXPECT_EQ(told(), 0);
  EXPECT_EQ(store.sessions(), 0);
  watch = start();
  store.set("State:/Network/Interface/en0/IPv4", "2");
  fakes::spinRunLoop(0);  // handed to the loop by now
  watch.reset();
  EXPECT_EQ(told(), 0);
}

TEST_F(MacAddressChangeWatchTest, ItMayBeDestroyedByWhatItTells) {
  std::unique_ptr<AddressChangeWatch> watch;
  watch = AddressChangeWatch::start(
      RunLoop::main(),
      [&] {
        ++calls;
        watch.reset();
      },
      reason);
  store.set("State:/Network/Interface/en0/IPv4", "1");
  EXPECT_EQ(told(), 1);
  EXPECT_EQ(store.sessions(), 0);
}

}  // namespace
}  // namespace ravelin::platform
