#include "platform/AddressChangeWatch.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/RunLoop.h"
#include "support/NoFreeDescriptors.h"
#include "support/TemporaryDirectory.h"
#include "support/Waiting.h"

namespace ravelin::platform {
namespace {

using std::chrono::steady_clock;
using test::runUntil;
using testing::ElementsAre;
using testing::IsEmpty;
using Seconds = RunLoop::Seconds;

constexpr Seconds A_WHILE{0.2};

/// Runs `ip` in the network namespace of this thread.
void ip(const std::string& arguments) {
  ASSERT_EQ(std::system(("ip " + arguments).c_str()), 0) << arguments;
}

std::set<int> openDescriptors() {
  std::set<int> numbers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    numbers.insert(std::stoi(entry.path().filename()));
  }
  // The one through which the folder was read is closed by now.
  std::erase_if(numbers, [](int number) { return ::fcntl(number, F_GETFD) == -1; });
  return numbers;
}

/// Puts this thread into a network namespace of its own, with two ends of a cable, named near and
/// far, that are up and have no IPv4 address, and back.
class AddressChangeWatchTest : public testing::Test {
 protected:
  void SetUp() override {
    _before = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(_before, 0);
    if (::unshare(CLONE_NEWNET) != 0) {
      ::close(_before);
      _before = -1;
      const char* const ci = std::getenv("CI");
      ASSERT_FALSE(ci != nullptr && std::string_view(ci) == "true")
          << "the tests of address changes need root";
      GTEST_SKIP() << "LEFT OUT: the tests of address changes need root";
    }
    ip("link set lo up");
    ip("link add near type veth peer name far");
    ip("link set near up");
    ip("link set far up");
  }

  void TearDown() override {
    watch.reset();
    if (_before >= 0) {
      ASSERT_EQ(::setns(_before, CLONE_NEWNET), 0);
      ::close(_before);
    }
  }

  /// Starts a watch that writes down, for everything it tells, whether memberships may be lost.
  void start() {
    std::string reason = "untouched";
    watch = AddressChangeWatch::start(
        RunLoop::main(), [this] { told.push_back(watch->membershipsMayBeLost()); }, reason);
    ASSERT_NE(watch, nullptr) << reason;
    EXPECT_EQ(reason, "untouched");
  }

  /// Waits for something to be told, and returns all that is.
  std::vector<bool> nextTold() {
    EXPECT_TRUE(runUntil([this] { return !told.empty(); }));
    return std::exchange(told, {});
  }

  /// Whether the loop sleeps on, because nothing wakes it.
  static bool nothingWakesTheLoop() {
    const auto start = steady_clock::now();
    RunLoop::main().runOnce(A_WHILE);
    return steady_clock::now() - start >= A_WHILE;
  }

  std::unique_ptr<AddressChangeWatch> watch;
  std::vector<bool> told;

 private:
  int _before = -1;
};

TEST_F(AddressChangeWatchTest, TellsNothingOfWhatWasThereBefore) {
  ip("address add 192.0.2.1/24 dev near");
  start();
  EXPECT_TRUE(nothingWakesTheLoop());
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(AddressChangeWatchTest, TellsOfAnAddressThatComesAndOfOneThatGoes) {
  start();
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(false));
  ip("address add 127.0.0.2/8 dev lo");
  EXPECT_THAT(nextTold(), ElementsAre(false));
  ip("address del 192.0.2.1/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(true));
  EXPECT_TRUE(nothingWakesTheLoop());
}

TEST_F(AddressChangeWatchTest, TellsOnceOfWhatComesTogether) {
  start();
  ip("address add 192.0.2.1/24 dev near");
  ip("address add 192.0.2.2/24 dev far");
  ip("address add 192.0.2.3/24 dev lo");
  EXPECT_THAT(nextTold(), ElementsAre(false));
  ip("address del 192.0.2.1/24 dev near");
  ip("address add 192.0.2.4/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(true));
  EXPECT_TRUE(nothingWakesTheLoop());
}

TEST_F(AddressChangeWatchTest, TellsThatAnAddressWentAwayThoughItIsBack) {
  ip("address add 192.0.2.1/24 dev near");
  start();
  ip("address del 192.0.2.1/24 dev near");
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(true));
}

TEST_F(AddressChangeWatchTest, TellsOfAnInterfaceThatIsDeletedAndMadeAgain) {
  ip("address add 192.0.2.1/24 dev near");
  start();
  ip("link del near");
  EXPECT_THAT(nextTold(), ElementsAre(true));
  ip("link add near type veth peer name far");
  EXPECT_TRUE(nothingWakesTheLoop());
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(false));
  ip("link del near");
  ip("link add near type veth peer name far");
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(true));
}

TEST_F(AddressChangeWatchTest, TellsOfAddressesThatAnotherChangeTakesAway) {
  start();
  ip("link set lo mtu 67");  // too little for IPv4
  EXPECT_THAT(nextTold(), ElementsAre(true));
}

TEST_F(AddressChangeWatchTest, IsNotWokenByOtherChangesOfTheNetwork) {
  ip("address add 192.0.2.1/24 dev near");
  start();
  ip("link set near down");
  ip("link set near up");
  ip("link set far down");
  ip("link set far up");
  ip("link set near mtu 1400");
  ip("link set near address 02:00:00:00:00:01");
  ip("link add one type veth peer name two");
  ip("link set one up");
  ip("link del one");
  ip("address add 2001:db8::1/64 dev near nodad");
  ip("address del 2001:db8::1/64 dev near");
  ip("route add 198.51.100.0/24 via 192.0.2.2");
  ip("neighbour add 192.0.2.3 lladdr 02:00:00:00:00:03 dev near");
  EXPECT_TRUE(nothingWakesTheLoop());
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(AddressChangeWatchTest, CountsNoticesThatAreLostAsAnyChange) {
  start();
  const test::TemporaryDirectory folder;
  {
    std::ofstream batch(folder.path() + "/batch");
    for (int number = 0; number < 2000; ++number) {
      batch << "address add 10.0." << number / 250 << '.' << number % 250 + 1 << "/32 dev near\n";
    }
  }
  ip("-batch " + folder.path() + "/batch");
  // Addresses have come only, but there were too many notices to keep.
  EXPECT_THAT(nextTold(), ElementsAre(true));
  EXPECT_TRUE(nothingWakesTheLoop());
  ip("address add 192.0.2.1/24 dev far");
  EXPECT_THAT(nextTold(), ElementsAre(false));
}

TEST_F(AddressChangeWatchTest, BelievesTheKernelOnly) {
  start();
  struct {
    nlmsghdr header{};
    ifaddrmsg address{};
  } forged;
  forged.header.nlmsg_len = sizeof forged;
  forged.header.nlmsg_type = RTM_DELADDR;
  forged.address.ifa_family = AF_INET;
  forged.address.ifa_index = 1;
  // The first socket of its kind in a process has the number of the process.
  sockaddr_nl watching{};
  watching.nl_family = AF_NETLINK;
  watching.nl_pid = static_cast<unsigned>(::getpid());
  const int other = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  ASSERT_EQ(::sendto(other, &forged, sizeof forged, 0, reinterpret_cast<sockaddr*>(&watching),
                     sizeof watching),
            static_cast<ssize_t>(sizeof forged));
  EXPECT_FALSE(nothingWakesTheLoop());
  EXPECT_THAT(told, IsEmpty());
  ASSERT_EQ(::sendto(other, &forged, sizeof forged, 0, reinterpret_cast<sockaddr*>(&watching),
                     sizeof watching),
            static_cast<ssize_t>(sizeof forged));
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_THAT(nextTold(), ElementsAre(false));
  ::close(other);
}

TEST_F(AddressChangeWatchTest, TellsNothingOnceItIsDestroyedAndLeavesNothingOpen) {
  ASSERT_NE(&RunLoop::main(), nullptr);
  const auto before = openDescriptors();
  start();
  ip("address add 192.0.2.1/24 dev near");
  watch.reset();
  EXPECT_EQ(openDescriptors(), before);
  ip("address add 192.0.2.2/24 dev near");
  EXPECT_TRUE(nothingWakesTheLoop());
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(AddressChangeWatchTest, MayBeDestroyedByWhatItCalls) {
  const auto shared = std::make_shared<int>(1);
  std::string reason;
  int seen = 0;
  watch = AddressChangeWatch::start(
      RunLoop::main(),
      [this, &seen, shared] {
        watch.reset();
        seen += *shared;
      },
      reason);
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_TRUE(runUntil([&] { return seen > 0; }));
  ip("address add 192.0.2.2/24 dev near");
  EXPECT_TRUE(nothingWakesTheLoop());
  EXPECT_EQ(seen, 1);
  EXPECT_EQ(shared.use_count(), 1);
}

TEST_F(AddressChangeWatchTest, SeveralWatchesAreAllTold) {
  start();
  std::string reason;
  std::vector<bool> toldToo;
  std::unique_ptr<AddressChangeWatch> another;
  another = AddressChangeWatch::start(
      RunLoop::main(), [&] { toldToo.push_back(another->membershipsMayBeLost()); }, reason);
  ASSERT_NE(another, nullptr);
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_TRUE(runUntil([&] { return !told.empty() && !toldToo.empty(); }));
  EXPECT_THAT(told, ElementsAre(false));
  EXPECT_THAT(toldToo, ElementsAre(false));
}

TEST_F(AddressChangeWatchTest, ItsDescriptorIsKeptFromOtherProgramsAndNeverWaits) {
  ASSERT_NE(&RunLoop::main(), nullptr);
  const auto before = openDescriptors();
  start();
  int added = 0;
  for (const int number : openDescriptors()) {
    if (!before.contains(number)) {
      ++added;
      EXPECT_NE(::fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
      EXPECT_NE(::fcntl(number, F_GETFL) & O_NONBLOCK, 0);
    }
  }
  EXPECT_EQ(added, 1);
}

TEST_F(AddressChangeWatchTest, ANoticeIsDeliveredByTheLoopInATurnOfItsOwn) {
  start();
  ip("address add 192.0.2.1/24 dev near");
  // The turn in which the watch learns of it.
  RunLoop::main().runOnce(Seconds(10));
  EXPECT_THAT(told, IsEmpty());
  RunLoop::main().runOnce(Seconds(10));
  EXPECT_THAT(told, ElementsAre(false));
}

TEST_F(AddressChangeWatchTest, ANoticeOnItsWayIsNotDeliveredOnceTheWatchIsDestroyed) {
  start();
  ip("address add 192.0.2.1/24 dev near");
  RunLoop::main().runOnce(Seconds(10));
  watch.reset();
  RunLoop::main().runOnce(A_WHILE);
  EXPECT_TRUE(nothingWakesTheLoop());
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(AddressChangeWatchTest, SaysOnceThatMembershipsMayBeLostAndBeforeItTells) {
  ip("address add 192.0.2.1/24 dev near");
  start();
  EXPECT_FALSE(watch->membershipsMayBeLost());
  ip("address add 192.0.2.2/24 dev near");
  EXPECT_FALSE(watch->membershipsMayBeLost());
  ip("address del 192.0.2.1/24 dev near");
  ip("address add 192.0.2.1/24 dev near");
  EXPECT_TRUE(watch->membershipsMayBeLost());
  EXPECT_FALSE(watch->membershipsMayBeLost());
  // Asking keeps nothing from being told.
  EXPECT_THAT(told, IsEmpty());
  EXPECT_THAT(nextTold(), ElementsAre(false));
}

TEST_F(AddressChangeWatchTest, ARefusalHasItsReason) {
  ASSERT_NE(&RunLoop::main(), nullptr);
  std::string reason;
  {
    const test::NoFreeDescriptors none;
    EXPECT_EQ(AddressChangeWatch::start(RunLoop::main(), [] {}, reason), nullptr);
  }
  EXPECT_EQ(reason, "Too many open files");
}

}  // namespace
}  // namespace ravelin::platform
