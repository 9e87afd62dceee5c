#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace ravelin::test {

/// Two interfaces besides the loopback one, with these addresses, in this order.
inline constexpr const char* FIRST_ADDRESS = "192.0.2.20";
inline constexpr const char* SECOND_ADDRESS = "198.51.100.7";

/// Runs the test that calls it once more, in a process whose network is its own and has just these
/// two interfaces. True in that process, which goes on with the test; false in the one that
/// called, where the test has then been run and its outcome taken over.
[[nodiscard]] inline bool inOwnNetwork() {
  constexpr const char* MARK = "RAVELIN_DISK_TEST_IN_OWN_NETWORK";
  if (std::getenv(MARK) != nullptr) {
    return true;
  }
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string command =
      std::string("unshare ") + (::geteuid() == 0 ? "--net" : "--map-root-user --net") +
      " sh -c 'set -e; ip link set lo up; ip link add second type veth peer name first;"
      " ip addr add " +
      FIRST_ADDRESS + "/24 dev first; ip addr add " + SECOND_ADDRESS +
      "/24 dev second; ip link set first up; ip link set second up; exec \"$@\"' sh env " + MARK +
      "=1 '" + program + "' --gtest_filter=" + test->test_suite_name() + "." + test->name();
  const int status = std::system(command.c_str());
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
      << "in a network of its own, see above; status " << status;
  return false;
}

}  // namespace ravelin::test
