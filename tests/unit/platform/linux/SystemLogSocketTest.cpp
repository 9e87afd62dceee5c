#include "platform/linux/SystemLogSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "support/linux/LogService.h"

namespace ravelin::platform {
namespace {

using test::LogService;
using ::testing::EndsWith;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr int DAEMON = 3;

class SystemLogSocketTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return _directory.path() + "/log"; }

  /// The text of a record whose head is as it should be.
  static std::string textOf(const std::optional<std::string>& record) {
    if (!record) {
      return "no record";
    }
    EXPECT_THAT(record->substr(0, 34),
                MatchesRegex("<[0-9]+>[A-Z][a-z][a-z] [ 123][0-9] "
                             "[0-2][0-9]:[0-5][0-9]:[0-6][0-9] Ravelin Disk.*"));
    const std::string marker = " Ravelin Disk: ";
    const std::size_t start = record->find(marker);
    return start == std::string::npos ? "no ident" : record->substr(start + marker.size());
  }

 private:
  test::TemporaryDirectory _directory;
};

TEST_F(SystemLogSocketTest, SendsLevelAndFacilityAsPriority) {
  const LogService service(path(), SOCK_DGRAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  EXPECT_TRUE(socket.send(SystemLog::Level::error, "Server could not read data"));
  EXPECT_TRUE(socket.send(SystemLog::Level::warning, "two"));
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "three"));
  const std::optional<std::string> record = service.next();
  ASSERT_TRUE(record);
  EXPECT_THAT(*record, StartsWith("<27>"));
  EXPECT_EQ(textOf(record), "Server could not read data");
  EXPECT_THAT(service.next().value_or(""), StartsWith("<28>"));
  EXPECT_THAT(service.next().value_or(""), StartsWith("<30>"));
  EXPECT_EQ(service.next(), std::nullopt);
}

TEST_F(SystemLogSocketTest, MarksRecordsWithTheFacility) {
  const LogService service(path(), SOCK_DGRAM);
  constexpr int LOCAL7 = 23;
  EXPECT_TRUE(SystemLogSocket(path(), "Ravelin Disk", LOCAL7).send(SystemLog::Level::info, ""));
  EXPECT_THAT(service.next().value_or("none"), StartsWith("<190>"));
}

TEST_F(SystemLogSocketTest, SendsTextAsData) {
  const LogService service(path(), SOCK_DGRAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "one\ntwo\n%s %n %d \xFF\n"));
  EXPECT_EQ(textOf(service.next()), "one\ntwo\n%s %n %d \xFF\n");
  EXPECT_TRUE(socket.send(SystemLog::Level::info, ""));
  EXPECT_EQ(textOf(service.next()), "");
}

TEST_F(SystemLogSocketTest, LosesLinesWhileServiceIsAbsent) {
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
  const LogService service(path(), SOCK_DGRAM);
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "heard"));
  EXPECT_EQ(textOf(service.next()), "heard");
  EXPECT_EQ(service.next(), std::nullopt);
}

TEST_F(SystemLogSocketTest, FindsServiceThatWasStartedAnew) {
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  {
    const LogService service(path(), SOCK_DGRAM);
    EXPECT_TRUE(socket.send(SystemLog::Level::info, "first"));
  }
  {
    const LogService service(path(), SOCK_DGRAM);
    EXPECT_TRUE(socket.send(SystemLog::Level::info, "second"));
    EXPECT_EQ(textOf(service.next()), "second");
  }
  EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
  EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
  const LogService service(path(), SOCK_DGRAM);
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "third"));
  EXPECT_EQ(textOf(service.next()), "third");
}

TEST_F(SystemLogSocketTest, NeverWaitsForServiceThatDoesNotRead) {
  const LogService service(path(), SOCK_DGRAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  int taken = 0;
  while (taken < 1'000'000 &&
         socket.send(SystemLog::Level::info, "line " + std::to_string(taken))) {
    ++taken;
  }
  ASSERT_LT(taken, 1'000'000);
  for (int line = 0; line < 1000; ++line) {
    EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
  }
  for (int line = 0; line < taken; ++line) {
    EXPECT_EQ(textOf(service.next()), "line " + std::to_string(line));
  }
  EXPECT_EQ(service.next(), std::nullopt);
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "reads again"));
  EXPECT_EQ(textOf(service.next()), "reads again");
}

TEST_F(SystemLogSocketTest, CutsTextTooLongForRecord) {
  const LogService service(path(), SOCK_DGRAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  const std::string medium(std::size_t{60} * 1024, 'm');
  EXPECT_TRUE(socket.send(SystemLog::Level::info, medium));
  EXPECT_EQ(textOf(service.next()), medium);

  for (const std::size_t length : {std::size_t{200} * 1024, std::size_t{4096} * 1024}) {
    const std::string huge(length, 'x');
    EXPECT_TRUE(socket.send(SystemLog::Level::info, huge));
    const std::string received = textOf(service.next());
    EXPECT_GE(received.size(), 8000U);
    EXPECT_THAT(huge, StartsWith(received));
    EXPECT_TRUE(socket.send(SystemLog::Level::info, "next"));
    EXPECT_EQ(textOf(service.next()), "next");
  }
}

TEST_F(SystemLogSocketTest, CutsNoCharacterInTwo) {
  const LogService service(path(), SOCK_DGRAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  const std::string euro = "\xE2\x82\xAC";
  std::string many;
  while (many.size() < std::size_t{1024} * 1024) {
    many += euro;
  }
  for (const std::string start : {"", "1", "12"}) {
    EXPECT_TRUE(socket.send(SystemLog::Level::info, start + many));
    const std::string received = textOf(service.next());
    EXPECT_EQ((received.size() - start.size()) % euro.size(), 0U);
    EXPECT_THAT(received, EndsWith(euro));
  }
}

TEST_F(SystemLogSocketTest, TakesPathThatIsTooLongForAbsentService) {
  SystemLogSocket socket(path() + std::string(200, 'x'), "Ravelin Disk", DAEMON);
  EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
}

TEST_F(SystemLogSocketTest, TakesStaleSocketFileForAbsentService) {
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  {
    const LogService service(path() + ".new", SOCK_DGRAM);
    ASSERT_EQ(::rename((path() + ".new").c_str(), path().c_str()), 0);
    EXPECT_TRUE(socket.send(SystemLog::Level::info, "heard"));
  }
  ASSERT_EQ(::access(path().c_str(), F_OK), 0);
  EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
  EXPECT_FALSE(socket.send(SystemLog::Level::info, "lost"));
}

TEST_F(SystemLogSocketTest, EndsRecordsInStreamWithNul) {
  const LogService service(path(), SOCK_STREAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "one"));
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "two"));
  const int connection = service.accept();
  const std::string received = LogService::receive(connection).value_or("");
  EXPECT_EQ(textOf(received.substr(0, received.find('\0'))), "one");
  EXPECT_THAT(received, EndsWith(std::string(": two") + '\0'));

  ::close(connection);
  EXPECT_TRUE(socket.send(SystemLog::Level::info, "over a new connection"));
  const int next = service.accept();
  EXPECT_EQ(textOf(LogService::receive(next)), std::string("over a new connection") + '\0');
  ::close(next);
}

TEST_F(SystemLogSocketTest, NeverWaitsForStreamThatNobodyReads) {
  const LogService service(path(), SOCK_STREAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  const std::string text(10000, 'x');
  int lost = 0;
  for (int line = 0; line < 1000; ++line) {
    lost += socket.send(SystemLog::Level::info, text) ? 0 : 1;
  }
  EXPECT_GT(lost, 0);
}

TEST_F(SystemLogSocketTest, SendsLinesOfSeveralThreadsWhole) {
  const LogService service(path(), SOCK_DGRAM);
  SystemLogSocket socket(path(), "Ravelin Disk", DAEMON);
  constexpr int LINES = 500;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([&socket, letter] {
      const std::string text(300, letter);
      for (int line = 0; line < LINES; ++line) {
        while (!socket.send(SystemLog::Level::info, text)) {
          std::this_thread::yield();
        }
      }
    });
  }
  int received = 0;
  while (received < 4 * LINES) {
    if (const std::optional<std::string> record = service.next()) {
      const std::string text = textOf(record);
      EXPECT_EQ(text, std::string(300, text.front()));
      ++received;
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace ravelin::platform
