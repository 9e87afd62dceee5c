#include "core/Logger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "core/LogBudget.h"
#include "platform/ConsoleLog.h"
#include "platform/FileManager.h"
#include "platform/RunLoop.h"
#include "platform/Service.h"
#include "support/RecordingLog.h"
#include "support/TemporaryDirectory.h"

namespace ravelin {
namespace {

using platform::SystemLog;
using test::LogLine;
using test::RecordingLog;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::Lt;
using testing::ResultOf;

/// Sends standard error to a file for its lifetime.
class StandardErrorInFile {
 public:
  StandardErrorInFile()
      : _path(_directory.path() + "/stderr"),
        _before(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    const int file = ::open(_path.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
  }
  ~StandardErrorInFile() {
    ::dup2(_before, STDERR_FILENO);
    ::close(_before);
  }
  StandardErrorInFile(const StandardErrorInFile&) = delete;
  StandardErrorInFile& operator=(const StandardErrorInFile&) = delete;

  [[nodiscard]] Text content() const {
    return platform::service<platform::FileManager>()
        .contentsAtPath(_path, platform::FileManager::CONTENT_LIMIT)
        .text;
  }

 private:
  const test::TemporaryDirectory _directory;
  const std::string _path;
  const int _before;
};

TEST(LoggerTest, EachLogTypeHasItsLevel) {
  RecordingLog log;
  Logger::logMessage("one", LogTypeInfo);
  Logger::logMessage("two", LogTypeWarning);
  Logger::logMessage("three", LogTypeError);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{SystemLog::Level::info, "one"},
                                       LogLine{SystemLog::Level::warning, "two"},
                                       LogLine{SystemLog::Level::error, "three"}));
}

TEST(LoggerTest, TheLogTypesHaveTheirNumbers) {
  EXPECT_EQ(static_cast<std::int32_t>(LogTypeInfo), 0);
  EXPECT_EQ(static_cast<std::int32_t>(LogTypeWarning), 1);
  EXPECT_EQ(static_cast<std::int32_t>(LogTypeError), 2);
  EXPECT_EQ(static_cast<int>(SystemLog::Level::info), 6);
  EXPECT_EQ(static_cast<int>(SystemLog::Level::warning), 4);
  EXPECT_EQ(static_cast<int>(SystemLog::Level::error), 3);
}

TEST(LoggerTest, AnyOtherLogTypeWritesNothing) {
  RecordingLog log;
  for (const std::int32_t type : {-1, 3, 7, std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max()}) {
    Logger::logMessage("unheard", type);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(LoggerTest, TheMessageReachesTheLogServiceAsATemplate) {
  RecordingLog log;
  const std::string message("%d \n;\0%s", 8);
  Logger::logMessage(message, LogTypeInfo);
  EXPECT_THAT(log.lines(), ElementsAre(test::info(message)));
}

TEST(LoggerTest, LinesStandOnStandardErrorUnderTheAgentsName) {
  const StandardErrorInFile standardError;
  Logger::logMessage("unheard", 7);
  EXPECT_EQ(standardError.content(), "");
  Logger::logMessage("An error", LogTypeError);
  Logger::logMessage("A result", LogTypeInfo);
  EXPECT_EQ(standardError.content(), "Ravelin Disk: An error\nRavelin Disk: A result\n");
}

TEST(LoggerTest, ConversionsInALineAreExpandedWithoutArguments) {
  const StandardErrorInFile standardError;
  Logger::logMessage("label:100%% of %d and %s", LogTypeInfo);
  EXPECT_EQ(standardError.content(), "Ravelin Disk: label:100% of 0 and (null)\n");
}

TEST(LoggerTest, LinesThatDatagramsCauseHaveTheSameLevels) {
  RecordingLog log;
  Logger::logPeerMessage("one", LogTypeInfo);
  Logger::logPeerMessage("two", LogTypeWarning);
  Logger::logPeerMessage("three", LogTypeError);
  Logger::logPeerMessage("unheard", 7);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{SystemLog::Level::info, "one"},
                                       LogLine{SystemLog::Level::warning, "two"},
                                       LogLine{SystemLog::Level::error, "three"}));
}

TEST(LoggerTest, LinesOfSeveralThreadsAllArrive) {
  RecordingLog log;
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([thread] {
        for (int line = 0; line < 200; ++line) {
          Logger::logMessage(std::to_string(thread), LogTypeInfo);
        }
      });
    }
  }
  for (int thread = 0; thread < 4; ++thread) {
    EXPECT_EQ(log.count(test::info(std::to_string(thread))), 200U);
  }
}

// The budget is the process's own, so each of these has one for itself.

constexpr std::size_t STORM = 400;
constexpr const char* SUPPRESSED =
    "Ravelin Disk: Lines suppressed because datagrams caused too many: ";

/// What lines of the greatest length do to the budget.
void storm() {
  const std::string line(10'000, 'x');
  for (std::size_t count = 0; count < STORM; ++count) {
    Logger::logPeerMessage(line, LogTypeInfo);
  }
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

/// The sum of the suppressed lines that the log reports.
std::size_t toldIn(const std::string& log) {
  std::size_t told = 0;
  const std::string head = SUPPRESSED;
  for (std::size_t at = log.find(head); at != std::string::npos; at = log.find(head, at + 1)) {
    told += std::stoul(log.substr(at + head.size()));
  }
  return told;
}

/// The log of a storm holds its beginning, and the number of the lines that are not in it.
MATCHER(AccountsForAStorm, "") {
  return arg.size() >= std::size_t{1024} * 1024 - 8192 &&
         arg.size() < std::size_t{1024} * 1024 * 3 / 2 &&
         countOf(arg, " [cut]\n") + toldIn(arg) == STORM && countOf(arg, SUPPRESSED) == 1;
}

TEST(LoggerDeathTest, TheLinesThatDatagramsCauseShareABudget) {
  EXPECT_EXIT(
      {
        storm();
        Logger::logMessage("told before this", LogTypeInfo);
        Logger::logMessage("and only once", LogTypeInfo);
        std::exit(0);
      },
      ExitedWithCode(0),
      AllOf(AccountsForAStorm(),
            ContainsRegex(std::string(SUPPRESSED) +
                          "[0-9]+\nRavelin Disk: told before this\nRavelin Disk: and only once")));
}

TEST(LoggerDeathTest, ThatLinesWereSuppressedIsAnError) {
  EXPECT_EXIT(
      {
        storm();
        const RecordingLog log;
        Logger::logMessage("the next line", LogTypeInfo);
        const auto lines = log.lines();
        const bool isError = lines.size() == 2 && lines[0].level == SystemLog::Level::error &&
                             lines[0].text.starts_with("Lines suppressed");
        std::exit(isError ? 0 : 1);
      },
      ExitedWithCode(0), "");
}

TEST(LoggerDeathTest, SuppressedLinesAreToldOfAlthoughNoOtherLineFollows) {
  EXPECT_EXIT(
      {
        storm();
        Logger::tellSuppressed();
        platform::consoleLog("not ended yet");
        std::this_thread::sleep_for(LogBudget::QUIET);
        Logger::tellSuppressed();
        Logger::tellSuppressed();
        std::exit(0);
      },
      ExitedWithCode(0),
      AllOf(AccountsForAStorm(), ContainsRegex("not ended yet\n" + std::string(SUPPRESSED))));
}

/// Runs the main thread's loop until nothing wakes it for a long time; false when that never comes.
bool sleepsAtLast() {
  constexpr std::chrono::seconds LONG{5};
  for (int pass = 0; pass < 40; ++pass) {
    const auto begin = std::chrono::steady_clock::now();
    platform::RunLoop::main().runOnce(LONG);
    if (std::chrono::steady_clock::now() - begin >= LONG) {
      return true;
    }
  }
  return false;
}

TEST(LoggerDeathTest, TheMainThreadTellsOfSuppressedLinesByItselfAndThenSleeps) {
  EXPECT_EXIT(
      {
        storm();
        std::exit(sleepsAtLast() ? 0 : 1);
      },
      ExitedWithCode(0), AccountsForAStorm());
}

TEST(LoggerDeathTest, LinesThatNoDatagramCausesAreNeverSuppressed) {
  EXPECT_EXIT(
      {
        storm();
        for (std::size_t count = 0; count < STORM; ++count) {
          Logger::logMessage("the agent's own", LogTypeInfo);
        }
        std::exit(0);
      },
      ExitedWithCode(0),
      ResultOf([](const std::string& log) { return countOf(log, "the agent's own\n"); }, STORM));
}

TEST(LoggerDeathTest, TheConsoleLogHasItsShareOfTheBudget) {
  EXPECT_EXIT(
      {
        Logger::consolePeerMessage("%d heard");
        storm();
        for (std::size_t count = 0; count < STORM; ++count) {
          Logger::consolePeerMessage(std::string(10'000, 'y'));
        }
        std::exit(0);
      },
      ExitedWithCode(0),
      AllOf(ContainsRegex("\\] %d heard\n"),
            ResultOf([](const std::string& log) { return log.size(); },
                     Lt(std::size_t{1024} * 1024 * 3 / 2))));
}

}  // namespace
}  // namespace ravelin
