#include "platform/linux/shortcut/DesktopEntry.h"

#include <gtest/gtest.h>

#include <string>

namespace ravelin::platform {
namespace {

/// The whole text of an entry whose values stand in it as given.
std::string entryText(const std::string& nameLine, const std::string& urlLine) {
  return "# Ravelin Disk shortcut\n"
         "[Desktop Entry]\n"
         "Version=1.0\n"
         "Type=Link\n"
         "Name=" +
         nameLine + "\nURL=" + urlLine + "\nIcon=ravelin-disk\n";
}

std::string nameText(const std::string& name) {
  return DesktopEntry{.name = name, .url = "smb://guest:@192.0.2.10/x"}.text();
}

std::string withNameLine(const std::string& line) {
  return entryText(line, "smb://guest:@192.0.2.10/x");
}

TEST(DesktopEntryTest, LinksANameToAUrl) {
  const DesktopEntry entry{.name = "USB Disk", .url = "smb://guest:@192.168.1.5/USB%20Disk"};
  EXPECT_EQ(entry.text(), entryText("USB Disk", "smb://guest:@192.168.1.5/USB%20Disk"));
}

TEST(DesktopEntryTest, ALineBreakAddsNoLine) {
  EXPECT_EQ(nameText("a\nExec=evil\r\n[Desktop Action x]"),
            withNameLine("a\\nExec=evil\\r\\n[Desktop Action x]"));
  const DesktopEntry entry{.name = "a", .url = "smb://guest:@1.2.3.4\nExec=evil/\rx"};
  EXPECT_EQ(entry.text(), entryText("a", "smb://guest:@1.2.3.4\\nExec=evil/\\rx"));
}

TEST(DesktopEntryTest, ABackslashIsNeverReadAsTheBeginningOfAnEscape) {
  EXPECT_EQ(nameText("a\\nb\\\\"), withNameLine("a\\\\nb\\\\\\\\"));
}

TEST(DesktopEntryTest, BlanksAtTheEndsSurviveAReaderThatStripsThem) {
  EXPECT_EQ(nameText(" a b "), withNameLine("\\sa b\\s"));
  EXPECT_EQ(nameText(" "), withNameLine("\\s"));
  EXPECT_EQ(nameText("    "), withNameLine("\\s  \\s"));
  EXPECT_EQ(nameText("\ta\t"), withNameLine("\\ta\\t"));
}

TEST(DesktopEntryTest, OtherCharactersAreData) {
  EXPECT_EQ(nameText("\x01\x0b\x0c\x1b[0m\x7f#;=[]%%\"'$(x)`K\xc3\xbc"),
            withNameLine("\x01\x0b\x0c\x1b[0m\x7f#;=[]%%\"'$(x)`K\xc3\xbc"));
  EXPECT_EQ(nameText(""), withNameLine(""));
}

}  // namespace
}  // namespace ravelin::platform
