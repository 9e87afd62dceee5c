#include "platform/WorkspaceTest.h"

#include <gtest/gtest.h>

#include <csignal>

#include "platform/Service.h"
#include "platform/linux/shortcut/ShortcutHelper.h"
#include "platform/scripts/ScriptRunner.h"
#include "support/StandInChildProcesses.h"

namespace ravelin::platform {
namespace {

class LinuxWorkspaceTest : public WorkspaceTest {};

TEST_F(LinuxWorkspaceTest, TheShortcutNamesThePictureAndKeepsTheRest) {
  ASSERT_TRUE(service<ScriptRunner>().run(ShortcutScript{"192.0.2.10", "USB", "USB"}));
  const std::string before = contentOf(shortcut);
  setIcon(shortcut);
  std::string expected = before;
  const std::string themed = "Icon=ravelin-disk\n";
  expected.replace(expected.find(themed), themed.size(), "Icon=" + picture + "\n");
  EXPECT_EQ(contentOf(shortcut), expected);
  setIcon(shortcut);
  EXPECT_EQ(contentOf(shortcut), expected);
}

TEST_F(LinuxWorkspaceTest, AHelperThatHangsIsLetAloneButTheShortcutStillNamesThePicture) {
  ASSERT_NE(image, nullptr);
  ShortcutHelper program;
  const Substitute<ShortcutHelper> substitute(program);
  test::StandInChildProcesses helper;
  helper.answer = [](const test::ProgramCall& /*call*/) {
    return ChildResult{
        .terminationStatus = SIGKILL, .wasSignalled = true, .timedOut = true, .output = {}};
  };
  for (const char* label : {"USB", "Second", "Third"}) {
    const std::string path = home.desktop() + "/" + label + ".app";
    ASSERT_TRUE(service<ScriptRunner>().run(ShortcutScript{"192.0.2.10", label, label}));
    EXPECT_FALSE(setIcon(path));
    EXPECT_NE(contentOf(path).find("\nIcon=" + picture + "\n"), std::string::npos);
  }
  EXPECT_EQ(helper.takeCalls().size(), 1U);
}

}  // namespace
}  // namespace ravelin::platform
