#include "WorkspaceTest.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/Service.h"
#include "platform/scripts/ScriptRunner.h"
#include "support/Pictures.h"

namespace ravelin::platform {
namespace {

using test::Pictures;

TEST_F(WorkspaceTest, AMissingShortcutIsNotMade) {
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_TRUE(std::filesystem::is_empty(home.desktop()));
}

TEST_F(WorkspaceTest, WhatIsNoShortcutStaysAsItIs) {
  Pictures::write(shortcut, "somebody else's\nIcon=theirs\n");
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_EQ(contentOf(shortcut), "somebody else's\nIcon=theirs\n");
}

TEST_F(WorkspaceTest, ALinkIsNotFollowed) {
  ASSERT_TRUE(service<ScriptRunner>().run(ShortcutScript{"192.0.2.10", "USB", "USB"}));
  const std::string outside = home.path() + "/outside";
  std::filesystem::rename(shortcut, outside);
  std::filesystem::create_symlink(outside, shortcut);
  const std::string before = contentOf(outside);
  EXPECT_FALSE(setIcon(shortcut));
  EXPECT_EQ(contentOf(outside), before);
  EXPECT_TRUE(std::filesystem::is_symlink(shortcut));
}

}  // namespace
}  // namespace ravelin::platform
