#include "base/Precondition.h"

#include <gtest/gtest.h>

#include <csignal>
#include <iostream>
#include <string_view>

namespace ravelin {
namespace {

TEST(PreconditionTest, LetsProcessRunWhenItHolds) {
  precondition(true, "Server::start", "the port is set");
  SUCCEED();
}

TEST(PreconditionTest, EndsProcessWithMessage) {
  EXPECT_EXIT(precondition(false, "Server::start", "the port is 100%set"),
              ::testing::KilledBySignal(SIGABRT),
              "^Precondition failed in Server::start: the port is 100%set\n");
}

TEST(PreconditionTest, TheReportWritesTheMessage) {
  EXPECT_EXIT(
      {
        setPreconditionReport([](std::string_view message) { std::cerr << "<" << message << ">"; });
        preconditionFailed("Queue::addDisk", "there is a disk");
      },
      ::testing::KilledBySignal(SIGABRT),
      "^<Precondition failed in Queue::addDisk: there is a disk>$");
}

TEST(PreconditionTest, FailsUnconditionally) {
  EXPECT_EXIT(preconditionFailed("Queue::addDisk", "there is a disk"),
              ::testing::KilledBySignal(SIGABRT),
              "Precondition failed in Queue::addDisk: there is a disk\n");
}

}  // namespace
}  // namespace ravelin
