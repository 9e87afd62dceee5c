#include "check/ImaginedAgent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/Announcements.h"
#include "support/RecordingLog.h"

namespace ravelin::check {
namespace {

using std::chrono::seconds;
using test::bytesOf;
using test::datagram;
using test::RecordingLog;
using test::Texts;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint32_t SENDER = 0xC0000201;
const Texts MOUNTED{.event = "disk_mounted",
                    .mac = "02:00:00:00:00:01",
                    .ip = "192.0.2.10",
                    .uuid = "1234-ABCD",
                    .label = "USB Disk"};

class ImaginedAgentTest : public testing::Test {
 protected:
  Verdict take(const std::string& text, std::uint32_t sender = SENDER) {
    return agent.take(bytesOf(text), sender).verdict;
  }
  Verdict take(const Texts& texts) { return take(datagram(texts)); }
  std::string code(const std::string& text) { return take(text).code; }
  std::string code(const Texts& texts) { return take(texts).code; }
  void handle() { agent.handleWaiting(now); }

  static Texts labelled(const std::string& label) {
    Texts texts = MOUNTED;
    texts.label = label;
    return texts;
  }

  RecordingLog log;
  ImaginedAgent agent;
  Disk::Date now{std::chrono::hours(1)};
};

TEST_F(ImaginedAgentTest, WhatIsCompleteMakesAShortcut) {
  const auto judgement = agent.take(bytesOf(datagram(MOUNTED)), SENDER);
  EXPECT_EQ(judgement.verdict.kind, Verdict::Kind::complete);
  EXPECT_EQ(judgement.verdict.code, "complete");
  EXPECT_EQ(judgement.verdict.sentence, "complete; makes the shortcut 'USB Disk.app'");
  EXPECT_EQ(test::textsOf(*judgement.announced), MOUNTED);
  EXPECT_EQ(judgement.announced->sender(), SENDER);
}

TEST_F(ImaginedAgentTest, NothingStandsInTheLog) {
  take(MOUNTED);
  take("event:disk_unmounted;mac:m;uuid:u");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ImaginedAgentTest, WhatIsVoidHasItsReason) {
  EXPECT_EQ(take("event:disk_mounted;mac:1;ip:1;uuid:1;Label:x").sentence,
            "key 'Label' is unknown: the whole announcement is void");
  EXPECT_EQ(take("event: mac:1; mac:2").sentence,
            "key ' mac' is unknown: the whole announcement is void");
  EXPECT_EQ(take("event:disk_mounted;label:\xC3\xA9").sentence,
            "not ASCII at byte 26: the whole announcement is void");
  EXPECT_EQ(take("\x80").sentence, "not ASCII at byte 1: the whole announcement is void");
  EXPECT_EQ(take("event:mounted;mac:1").sentence,
            "there is no event 'mounted': the announcement is void");
  EXPECT_EQ(take("mac:1").sentence, "'event' is missing: the announcement is void");
  EXPECT_EQ(take("nothing").code, "missing-event");
  for (const char* key : {"mac", "ip", "uuid", "label"}) {
    Texts texts = MOUNTED;
    (std::string(key) == "mac"    ? texts.mac
     : std::string(key) == "ip"   ? texts.ip
     : std::string(key) == "uuid" ? texts.uuid
                                  : texts.label) = std::nullopt;
    const Verdict verdict = take(texts);
    EXPECT_EQ(verdict.kind, Verdict::Kind::nothing);
    EXPECT_EQ(verdict.code, std::string("missing-") + key);
  }
}

TEST_F(ImaginedAgentTest, TheSameWaitsOnce) {
  EXPECT_EQ(code(MOUNTED), "complete");
  EXPECT_EQ(code(MOUNTED), "waiting-already");
  handle();
  EXPECT_EQ(code(MOUNTED), "known");
}

TEST_F(ImaginedAgentTest, ADiskIsKnownByItsUuidEvenWhileItWaits) {
  take(MOUNTED);
  EXPECT_EQ(code(labelled("Other")), "known");
}

TEST_F(ImaginedAgentTest, ADiskIsForgottenWhenItIsGone) {
  take(MOUNTED);
  handle();
  EXPECT_EQ(code("event:disk_unmounted;mac:any;uuid:other"), "not-known");
  EXPECT_EQ(code("event:disk_unmounted;mac:any;uuid:1234-ABCD"), "removes");
  handle();
  EXPECT_EQ(code("event:disk_unmounted;mac:any;uuid:1234-ABCD"), "not-known");
  EXPECT_EQ(code(MOUNTED), "complete");
  handle();
  EXPECT_EQ(code("event:no_disk;mac:other"), "not-known");
  EXPECT_EQ(code("event:no_disk;mac:02:00:00:00:00:01"), "removes");
  handle();
  EXPECT_EQ(code("event:no_disk;mac:02:00:00:00:00:01"), "not-known");
}

TEST_F(ImaginedAgentTest, ADiskIsForgottenWhenItHasFallenSilent) {
  take(MOUNTED);
  handle();
  now += seconds(120);
  agent.forgetSilent(now);
  EXPECT_EQ(code(MOUNTED), "known");
  handle();
  now += seconds(121);
  agent.forgetSilent(now);
  EXPECT_EQ(code(MOUNTED), "complete");
}

TEST_F(ImaginedAgentTest, ALabelThatNoFileCanHave) {
  EXPECT_EQ(code(labelled(std::string(251, 'x'))), "complete");
  handle();
  take("event:no_disk;mac:02:00:00:00:00:01");
  handle();
  const Verdict verdict = take(labelled(std::string(252, 'x')));
  EXPECT_EQ(verdict.kind, Verdict::Kind::idle);
  EXPECT_EQ(verdict.code, "no-shortcut");
  EXPECT_THAT(verdict.sentence, HasSubstr("the label has 252 bytes"));
  EXPECT_THAT(verdict.sentence, HasSubstr("251 of them"));
}

TEST_F(ImaginedAgentTest, TextsThatNoScriptTakes) {
  int number = 0;
  for (const std::string& label :
       {std::string("a\"b"), std::string("a\\b"), std::string("a\0b", 3), std::string("a/b")}) {
    Texts texts = labelled(label);
    texts.uuid = std::to_string(++number);
    EXPECT_EQ(code(texts), "no-shortcut") << label;
  }
  Texts texts = MOUNTED;
  texts.ip = "192.0.2.10\"";
  EXPECT_EQ(code(texts), "no-shortcut");
}

TEST_F(ImaginedAgentTest, AShortcutWithoutAnAddressDoesNotOpen) {
  int number = 0;
  for (const char* ip : {"nowhere", "", "192.0.2", "192.0.2.10 ", "::1"}) {
    Texts texts = MOUNTED;
    texts.ip = ip;
    texts.uuid = std::to_string(++number);
    EXPECT_EQ(code(texts), "does-not-open") << ip;
  }
}

TEST_F(ImaginedAgentTest, TheLimitsAreTheAgents) {
  for (int number = 0; number < 1024; ++number) {
    Texts texts = MOUNTED;
    texts.uuid = std::to_string(number);
    ASSERT_EQ(code(texts), "complete");
  }
  const Verdict verdict = take(MOUNTED);
  EXPECT_EQ(verdict.kind, Verdict::Kind::nothing);
  EXPECT_EQ(verdict.code, "limit");
  EXPECT_THAT(verdict.sentence, HasSubstr("no sender may have more"));
  EXPECT_EQ(take(datagram(MOUNTED), SENDER + 1).code, "complete");
}

}  // namespace
}  // namespace ravelin::check
