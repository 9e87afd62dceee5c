#include "platform/linux/JournalSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "support/TemporaryDirectory.h"
#include "support/linux/LogService.h"

namespace ravelin::platform {
namespace {

using test::LogService;
using Result = JournalSocket::Result;
using Fields = std::map<std::string, std::string>;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr int DAEMON = 3;

/// The fields of a record, as the journal reads them; one that it would refuse has none.
Fields decoded(const std::optional<std::string>& record) {
  Fields fields;
  std::string rest = record.value_or("");
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    if (end == std::string::npos) {
      return {};
    }
    const std::string line = rest.substr(0, end);
    rest.erase(0, end + 1);
    if (const std::size_t equals = line.find('='); equals != std::string::npos) {
      fields[line.substr(0, equals)] = line.substr(equals + 1);
      continue;
    }
    std::uint64_t length = 0;
    for (unsigned byte = 0; byte < 8 && byte < rest.size(); ++byte) {
      length |= std::uint64_t{static_cast<unsigned char>(rest[byte])} << (8U * byte);
    }
    if (rest.size() < 8 + length + 1 || rest[8 + length] != '\n') {
      return {};
    }
    fields[line] = rest.substr(8, length);
    rest.erase(0, 8 + length + 1);
  }
  return fields;
}

class JournalSocketTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return _directory.path() + "/journal"; }

 private:
  test::TemporaryDirectory _directory;
};

TEST_F(JournalSocketTest, SendsIdentLevelFacilityProcessAndMessage) {
  const LogService journal(path(), SOCK_DGRAM);
  JournalSocket socket(path(), "Ravelin Disk", DAEMON);
  EXPECT_EQ(socket.send(SystemLog::Level::error, "Server could not read data"), Result::taken);
  EXPECT_THAT(decoded(journal.next()),
              UnorderedElementsAre(Pair("SYSLOG_IDENTIFIER", "Ravelin Disk"), Pair("PRIORITY", "3"),
                                   Pair("SYSLOG_FACILITY", "3"),
                                   Pair("SYSLOG_PID", std::to_string(::getpid())),
                                   Pair("MESSAGE", "Server could not read data")));
  EXPECT_EQ(socket.send(SystemLog::Level::warning, ""), Result::taken);
  EXPECT_EQ(decoded(journal.next())["PRIORITY"], "4");
  EXPECT_EQ(socket.send(SystemLog::Level::info, ""), Result::taken);
  EXPECT_EQ(decoded(journal.next())["PRIORITY"], "6");
  EXPECT_EQ(journal.next(), std::nullopt);
}

TEST_F(JournalSocketTest, NoMessageAddsAField) {
  const LogService journal(path(), SOCK_DGRAM);
  JournalSocket socket(path(), "Ravelin Disk", DAEMON);
  for (const std::string& message :
       {std::string("one\ntwo"), std::string("\nPRIORITY=0\n"), std::string("x\n\0\1\0\n=", 7),
        std::string("\xFF\xC3\x1B[31m"), std::string(300, '\n'), std::string()}) {
    EXPECT_EQ(socket.send(SystemLog::Level::info, message), Result::taken);
    const Fields fields = decoded(journal.next());
    EXPECT_EQ(fields.size(), 5U);
    EXPECT_EQ(fields.at("PRIORITY"), "6");
    EXPECT_EQ(fields.at("MESSAGE"), message);
  }
}

TEST_F(JournalSocketTest, TellsWhereNoJournalIs) {
  JournalSocket socket(path(), "Ravelin Disk", DAEMON);
  EXPECT_EQ(socket.send(SystemLog::Level::info, "lost"), Result::absent);
  {
    const LogService journal(path(), SOCK_DGRAM);
    EXPECT_EQ(socket.send(SystemLog::Level::info, "first"), Result::taken);
  }
  EXPECT_EQ(socket.send(SystemLog::Level::info, "lost"), Result::absent);
  const LogService journal(path(), SOCK_DGRAM);
  EXPECT_EQ(socket.send(SystemLog::Level::info, "second"), Result::taken);
  EXPECT_EQ(decoded(journal.next())["MESSAGE"], "second");
}

TEST_F(JournalSocketTest, NeverWaitsForJournalThatDoesNotRead) {
  const LogService journal(path(), SOCK_DGRAM);
  JournalSocket socket(path(), "Ravelin Disk", DAEMON);
  int taken = 0;
  Result result = Result::taken;
  while (taken < 1'000'000 &&
         (result = socket.send(SystemLog::Level::info, "line")) == Result::taken) {
    ++taken;
  }
  // A journal that is there, so that the line must not go another way.
  EXPECT_EQ(result, Result::lost);
  EXPECT_TRUE(journal.next());
  EXPECT_EQ(socket.send(SystemLog::Level::info, "reads again"), Result::taken);
}

TEST_F(JournalSocketTest, RefusesMessageTooLongForOneRecord) {
  const LogService journal(path(), SOCK_DGRAM);
  JournalSocket socket(path(), "Ravelin Disk", DAEMON);
  const std::string huge(std::size_t{4096} * 1024, 'x');
  EXPECT_EQ(socket.send(SystemLog::Level::info, huge), Result::tooLong);
  EXPECT_EQ(socket.send(SystemLog::Level::info, "next"), Result::taken);
  EXPECT_EQ(decoded(journal.next())["MESSAGE"], "next");
}

}  // namespace
}  // namespace ravelin::platform
