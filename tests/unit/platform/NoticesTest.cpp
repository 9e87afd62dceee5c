#include "platform/Notices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/Waiting.h"

namespace ravelin::platform {
namespace {

using test::settle;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(NoticesTest, AreDeliveredLaterAndInOrder) {
  std::vector<std::string> delivered;
  Notices<std::string> notices(RunLoop::main(),
                               [&](const std::string& text) { delivered.push_back(text); });
  notices.tell("first");
  notices.tell("second");
  EXPECT_THAT(delivered, IsEmpty());
  settle();
  EXPECT_THAT(delivered, ElementsAre("first", "second"));
}

TEST(NoticesTest, MayTellNothingButThatTheyCame) {
  int delivered = 0;
  Notices<> notices(RunLoop::main(), [&] { ++delivered; });
  notices.tell();
  settle();
  EXPECT_EQ(delivered, 1);
}

TEST(NoticesTest, OnTheirWayDoNothingOnceTheirSourceIsDestroyed) {
  int delivered = 0;
  auto notices = std::make_optional<Notices<>>(RunLoop::main(), [&] { ++delivered; });
  notices->tell();
  notices->tell();
  notices.reset();
  settle();
  EXPECT_EQ(delivered, 0);
}

TEST(NoticesTest, TheReceiverMayDestroyTheSource) {
  std::vector<std::string> delivered;
  const auto text = std::make_shared<std::string>("what the receiver holds as long as it runs");
  std::optional<Notices<>> notices;
  notices.emplace(RunLoop::main(), [&, text] {
    notices.reset();
    delivered.push_back(*text);
  });
  notices->tell();
  notices->tell();
  settle();
  EXPECT_THAT(delivered, ElementsAre(*text));
  EXPECT_EQ(text.use_count(), 1);
}

}  // namespace
}  // namespace ravelin::platform
