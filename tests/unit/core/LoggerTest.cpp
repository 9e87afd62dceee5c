#include "core/Logger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "RecordingLog.h"
#include "TemporaryDirectory.h"
#include "platform/FileManager.h"
#include "platform/Service.h"

namespace ravelin {
namespace {

using platform::SystemLog;
using test::LogLine;
using test::RecordingLog;
using testing::ElementsAre;
using testing::IsEmpty;

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
    return platform::service<platform::FileManager>().contentsAtPath(_path);
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

}  // namespace
}  // namespace ravelin
