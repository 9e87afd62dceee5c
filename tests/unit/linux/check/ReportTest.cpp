#include "check/Report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "base/Utf8.h"

namespace ravelin::check {
namespace {

const std::string ODD = std::string("a\0\x1b[31m\n\xff\xc3\xbc\"\\", 13);

TEST(ReportTest, PeopleSeeTopicsAndLevels) {
  Report report;
  report.add("configuration", {ok("a", "one"), wrong("b", "two")});
  report.add("empty", {});
  report.add("agent", {note("c", "three")});
  EXPECT_EQ(report.text(Colours(false)),
            "configuration\n  ok     one\n  wrong  two\nagent\n  note   three\n");
  EXPECT_EQ(report.text(Colours(true)),
            "configuration\n  \x1b[32mok\x1b[0m     one\n  \x1b[31mwrong\x1b[0m  two\nagent\n  "
            "\x1b[33mnote\x1b[0m   three\n");
  EXPECT_EQ(report.wrong(), 1U);
}

TEST(ReportTest, WhateverTheBytesNothingReachesTheTerminal) {
  Report report;
  report.add("x", {wrong("code", ODD)});
  EXPECT_EQ(report.text(Colours(false)), "x\n  wrong  a\\x00\\x1b[31m\\n\\xff\u00fc\"\\\n");
}

TEST(ReportTest, WhateverTheBytesTheJsonIsValid) {
  Report report;
  report.add("x", {wrong("code", ODD, {{"value", ODD}})});
  const std::string json = report.json();
  EXPECT_TRUE(isUtf8(json));
  const auto read = nlohmann::json::parse(json);
  EXPECT_EQ(read["wrong"], 1);
  EXPECT_EQ(read["findings"][0]["level"], "wrong");
  EXPECT_EQ(read["findings"][0]["topic"], "x");
  EXPECT_EQ(read["findings"][0]["details"]["value"], "a\\x00\\x1b[31m\\n\\xff\u00fc\"\\");
}

}  // namespace
}  // namespace ravelin::check
