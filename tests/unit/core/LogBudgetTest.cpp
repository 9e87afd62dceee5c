#include "core/LogBudget.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

#include "base/LogLine.h"

namespace ravelin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class LogBudgetTest : public ::testing::Test {
 protected:
  /// Writes lines of this size until one is suppressed; returns their bytes.
  std::size_t spendAll(std::size_t lineSize) {
    std::size_t spent = 0;
    while (spent <= 2 * LogBudget::AT_ONCE && budget.reserve(now)) {
      budget.settle(lineSize);
      spent += lineSize;
    }
    return spent;
  }

  LogBudget budget;
  LogBudget::Clock::time_point now = LogBudget::Clock::now();
};

TEST_F(LogBudgetTest, AMebibyteMayBeWrittenAtOnce) {
  EXPECT_EQ(spendAll(LOG_LINE_LIMIT), std::size_t{1024} * 1024);
}

TEST_F(LogBudgetTest, OnlyWhatLinesTakeCounts) {
  const std::size_t spent = spendAll(100);
  EXPECT_LE(spent, LogBudget::AT_ONCE);
  EXPECT_GT(spent, LogBudget::AT_ONCE - LOG_LINE_LIMIT - 100);
}

TEST_F(LogBudgetTest, IsRefilledWithSixtyFourKibibytesASecond) {
  spendAll(LOG_LINE_LIMIT);
  now += seconds(1);
  EXPECT_EQ(spendAll(LOG_LINE_LIMIT), std::size_t{64} * 1024);
  now += milliseconds(4500);
  EXPECT_EQ(spendAll(LOG_LINE_LIMIT), std::size_t{288} * 1024);
}

TEST_F(LogBudgetTest, IsRefilledInSmallSteps) {
  spendAll(LOG_LINE_LIMIT);
  std::size_t spent = 0;
  for (int step = 0; step < 40'000; ++step) {
    now += std::chrono::microseconds(250);
    spent += spendAll(LOG_LINE_LIMIT);
  }
  EXPECT_LE(spent, 10 * LogBudget::A_SECOND);
  EXPECT_GE(spent, 9 * LogBudget::A_SECOND);
}

TEST_F(LogBudgetTest, NeverHoldsMoreThanAtFirst) {
  now += std::chrono::hours(100);
  EXPECT_EQ(spendAll(LOG_LINE_LIMIT), LogBudget::AT_ONCE);
  now += std::chrono::hours(100'000);
  EXPECT_EQ(spendAll(LOG_LINE_LIMIT), LogBudget::AT_ONCE);
}

TEST_F(LogBudgetTest, BearsTimeThatGoesBack) {
  spendAll(LOG_LINE_LIMIT);
  now -= seconds(10);
  EXPECT_EQ(spendAll(LOG_LINE_LIMIT), 0U);
}

TEST_F(LogBudgetTest, SuppressedLinesAreToldOfOnceThatHasEnded) {
  EXPECT_EQ(budget.takeEnded(now), 0U);
  spendAll(LOG_LINE_LIMIT);
  for (int line = 1; line < 7; ++line) {
    EXPECT_FALSE(budget.reserve(now));
  }
  EXPECT_EQ(budget.takeEnded(now), 0U);
  EXPECT_EQ(budget.takeEnded(now + milliseconds(999)), 0U);
  EXPECT_EQ(budget.takeEnded(now + seconds(1)), 7U);
  EXPECT_EQ(budget.takeEnded(now + seconds(2)), 0U);
}

TEST_F(LogBudgetTest, SuppressingGoesOnWhileLinesAreSuppressed) {
  spendAll(LOG_LINE_LIMIT);
  for (int second = 0; second < 20; ++second) {
    now += milliseconds(900);
    EXPECT_EQ(budget.takeEnded(now), 0U);
    spendAll(LOG_LINE_LIMIT);
  }
  EXPECT_EQ(budget.takeEnded(now + seconds(1)), 21U);
}

TEST_F(LogBudgetTest, SuppressedLinesCanBeToldOfAtOnce) {
  spendAll(LOG_LINE_LIMIT);
  EXPECT_EQ(budget.takeSuppressed(), 1U);
  EXPECT_EQ(budget.takeSuppressed(), 0U);
  EXPECT_EQ(budget.takeEnded(now + seconds(1)), 0U);
}

TEST_F(LogBudgetTest, OnlyTheFirstSuppressedLineIsReported) {
  int reports = 0;
  LogBudget reporting([&] { ++reports; });
  while (reporting.reserve(now)) {
  }
  EXPECT_EQ(reports, 1);
  reporting.reserve(now);
  EXPECT_EQ(reports, 1);
  reporting.takeSuppressed();
  reporting.reserve(now);
  EXPECT_EQ(reports, 2);
}

TEST_F(LogBudgetTest, ThreadsShareIt) {
  std::vector<std::size_t> spent(4);
  {
    std::vector<std::jthread> threads;
    threads.reserve(spent.size());
    for (std::size_t& mine : spent) {
      threads.emplace_back([this, &mine] {
        for (int line = 0; line < 5000; ++line) {
          if (budget.reserve(now)) {
            budget.settle(1000);
            mine += 1000;
          }
        }
      });
    }
  }
  std::size_t all = budget.takeSuppressed() * 1000;
  std::size_t written = 0;
  for (const std::size_t mine : spent) {
    written += mine;
  }
  EXPECT_LE(written, LogBudget::AT_ONCE);
  EXPECT_EQ(all + written, 4U * 5000 * 1000);
}

}  // namespace
}  // namespace ravelin
