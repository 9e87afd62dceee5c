#include "platform/scripts/RemovalScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ravelin::platform {
namespace {

TEST(RemovalScriptTest, DeletesTheItemOfTheDesktopFolderIfItIsThere) {
  const RemovalScript script{.fileName = "USB Disk.app"};
  EXPECT_EQ(script.source(),
            "set desktopFolder to (path to desktop folder as Unicode text)\n"
            "set myFile to desktopFolder & \"USB Disk.app\"\n"
            "tell application \"Finder\"\n"
            "if exists myFile then\n"
            "delete myFile\n"
            "end if\n"
            "end tell");
  EXPECT_THAT(script.insertedValues(), testing::ElementsAre("USB Disk.app"));
}

TEST(RemovalScriptTest, TheFileNameStandsAsItIs) {
  const RemovalScript script{.fileName = "a\"b\\c%@\n.app"};
  EXPECT_EQ(script.source(),
            "set desktopFolder to (path to desktop folder as Unicode text)\n"
            "set myFile to desktopFolder & \"a\"b\\c%@\n.app\"\n"
            "tell application \"Finder\"\n"
            "if exists myFile then\n"
            "delete myFile\n"
            "end if\n"
            "end tell");
}

}  // namespace
}  // namespace ravelin::platform
