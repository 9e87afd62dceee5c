#include "platform/scripts/ShortcutScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

namespace ravelin::platform {
namespace {

using testing::ElementsAre;

TEST(ShortcutScriptTest, StoresAnApplicationNamedAfterTheLabelThatOpensTheShareAsGuest) {
  const ShortcutScript script{
      .ipAddress = "192.168.1.5", .encodedLabel = "USB%20Disk", .label = "USB Disk"};
  EXPECT_EQ(script.source(),
            "script myScript\n"
            "tell application \"Finder\"\n"
            "open location \"smb://guest:@192.168.1.5/USB%20Disk\"\n"
            "end tell\n"
            "end script\n"
            "store script myScript in (path to desktop as text) & \"USB Disk.app\"");
  EXPECT_EQ(script.url(), "smb://guest:@192.168.1.5/USB%20Disk");
  EXPECT_THAT(script.insertedValues(), ElementsAre("192.168.1.5", "USB%20Disk", "USB Disk"));
}

TEST(ShortcutScriptTest, AnAbsentValueStandsAsNull) {
  const ShortcutScript script{
      .ipAddress = std::nullopt, .encodedLabel = std::nullopt, .label = std::nullopt};
  EXPECT_EQ(script.source(),
            "script myScript\n"
            "tell application \"Finder\"\n"
            "open location \"smb://guest:@(null)/(null)\"\n"
            "end tell\n"
            "end script\n"
            "store script myScript in (path to desktop as text) & \"(null).app\"");
  EXPECT_THAT(script.insertedValues(), ElementsAre("(null)", "(null)", "(null)"));
}

TEST(ShortcutScriptTest, ALabelThatCannotBeEscapedStillNamesTheApplication) {
  const ShortcutScript script{.ipAddress = "192.0.2.10",
                              .encodedLabel = std::nullopt,
                              .label =
                                  "K\xc3\xbc"
                                  "che"};
  EXPECT_EQ(script.source(),
            "script myScript\n"
            "tell application \"Finder\"\n"
            "open location \"smb://guest:@192.0.2.10/(null)\"\n"
            "end tell\n"
            "end script\n"
            "store script myScript in (path to desktop as text) & \"K\xc3\xbc"
            "che.app\"");
}

TEST(ShortcutScriptTest, AnEmptyValueIsNotAnAbsentOne) {
  const ShortcutScript script{.ipAddress = "", .encodedLabel = "", .label = ""};
  EXPECT_EQ(script.url(), "smb://guest:@/");
  EXPECT_TRUE(script.source().ends_with("(path to desktop as text) & \".app\""));
}

TEST(ShortcutScriptTest, ValuesStandAsTheyAre) {
  const ShortcutScript script{.ipAddress = "a\"b", .encodedLabel = "%@%n", .label = "c\\d\ne"};
  EXPECT_EQ(script.source(),
            "script myScript\n"
            "tell application \"Finder\"\n"
            "open location \"smb://guest:@a\"b/%@%n\"\n"
            "end tell\n"
            "end script\n"
            "store script myScript in (path to desktop as text) & \"c\\d\ne.app\"");
}

}  // namespace
}  // namespace ravelin::platform
