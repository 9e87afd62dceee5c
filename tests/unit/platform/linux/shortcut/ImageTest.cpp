#include "platform/ImageTest.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ChildProcess.h"
#include "platform/Service.h"
#include "platform/linux/shortcut/ShortcutHelper.h"
#include "support/Pictures.h"

namespace ravelin::platform {
namespace {

using std::chrono_literals::operator""h;
using std::chrono_literals::operator""ms;
using test::Pictures;

/// Runs another program in the place of each one, and counts.
class OtherProgram final : public ChildProcesses {
 public:
  OtherProgram(std::string path, std::vector<std::string> arguments)
      : _path(std::move(path)), _arguments(std::move(arguments)) {}

  ChildResult run(const std::string& /*path*/, const std::vector<std::string>& /*arguments*/,
                  Output output, std::optional<std::chrono::milliseconds> limit) override {
    ++runs;
    return native<ChildProcesses>().run(_path, _arguments, output, limit);
  }

  int runs = 0;

 private:
  std::string _path;
  std::vector<std::string> _arguments;
};

class LinuxImageTest : public ImageTest {};

TEST_F(LinuxImageTest, WithoutAFileNoProgramIsStarted) {
  OtherProgram program("/bin/true", {});
  const Substitute<ChildProcesses> substitute(program);
  EXPECT_EQ(read(_folder.path() + "/missing.ico"), nullptr);
  EXPECT_EQ(program.runs, 0);
}

TEST_F(LinuxImageTest, ADecoderThatHangsIsLetAloneForAWhile) {
  ShortcutHelper patientForLong(200ms, 1h);
  const Substitute<ShortcutHelper> substitutedPatience(patientForLong);
  OtherProgram program("/bin/sleep", {"1000"});
  const Substitute<ChildProcesses> substitute(program);
  EXPECT_EQ(read(file("icon.ico", Pictures::ico())), nullptr);
  EXPECT_EQ(read(file("icon.ico", Pictures::ico())), nullptr);
  EXPECT_EQ(read(file("icon.icns", Pictures::icns())), nullptr);
  EXPECT_EQ(program.runs, 1);
}

TEST_F(LinuxImageTest, OnlyWhatADecoderSaidIsRemembered) {
  const std::string path = file("icon.ico", Pictures::ico());
  {
    ShortcutHelper impatient(200ms, 0ms);
    const Substitute<ShortcutHelper> substitutedPatience(impatient);
    OtherProgram hanging("/bin/sleep", {"1000"});
    OtherProgram crashing("/bin/sh", {"-c", "kill -SEGV $$"});
    OtherProgram unloadable("/bin/sh", {"-c", "exit 127"});
    OtherProgram missing("/nonexistent/program", {});
    for (OtherProgram* program : {&hanging, &crashing, &unloadable, &missing}) {
      const Substitute<ChildProcesses> substitute(*program);
      EXPECT_EQ(read(path), nullptr);
      EXPECT_EQ(program->runs, 1);
    }
  }
  EXPECT_NE(read(path), nullptr);
  OtherProgram refusing("/bin/false", {});
  const Substitute<ChildProcesses> substitute(refusing);
  EXPECT_NE(read(path), nullptr);
  const std::string other = file("other.ico", Pictures::ico());
  EXPECT_EQ(read(other), nullptr);
  EXPECT_EQ(read(other), nullptr);
  EXPECT_EQ(refusing.runs, 1);
}

TEST_F(LinuxImageTest, ADecoderThatCrashesOrIsMissingMeansNoPicture) {
  OtherProgram crashing("/bin/sh", {"-c", "kill -SEGV $$"});
  OtherProgram missing("/nonexistent/program", {});
  for (OtherProgram* program : {&crashing, &missing}) {
    const Substitute<ChildProcesses> substitute(*program);
    EXPECT_EQ(read(file("icon" + std::to_string(program->runs), Pictures::png())), nullptr);
    EXPECT_EQ(program->runs, 1);
    std::filesystem::remove(_folder.path() + "/icon0");
  }
}

}  // namespace
}  // namespace ravelin::platform
