#include "controller/Controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "controller/PlainModel.h"
#include "core/AgentState.h"
#include "core/Constants.h"
#include "intake/Server.h"
#include "platform/Image.h"
#include "platform/RunLoop.h"
#include "platform/SystemVersion.h"
#include "platform/Workspace.h"
#include "platform/scripts/ScriptRunner.h"
#include "support/Announcements.h"
#include "support/ManualClock.h"
#include "support/OpenController.h"
#include "support/RecordingLog.h"
#include "support/Shortcuts.h"
#include "support/TemporaryHome.h"
#include "support/Udp.h"
#include "support/Waiting.h"
#include "support/linux/ProgramMemory.h"
#include "support/linux/Seccomp.h"

namespace ravelin {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

using platform::RunLoop;
using test::bytesOf;
using test::datagram;
using test::error;
using test::heldOfFiles;
using test::holdAllOfFiles;
using test::info;
using test::Label;
using test::labels;
using test::LogLine;
using test::makeDisk;
using test::ManualClock;
using test::OpenController;
using test::PlainModel;
using test::receivedLine;
using test::RecordingLog;
using test::runUntil;
using test::shortcutsIn;
using test::TemporaryHome;
using test::Texts;
using test::textsOf;
using test::urlIn;
using test::waitUntil;
using test::writeShortcut;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

const LogLine NOT_THERE =
    error("Error when deleting alias file. Reason: No such file or directory");
const LogLine NOT_OURS =
    error("Error when deleting alias file. Reason: It is not a shortcut of Ravelin Disk");
const LogLine IS_A_FOLDER = error("Error when deleting alias file. Reason: Is a directory");

/// A system of a version that the test chooses.
class ChosenVersion final : public platform::SystemVersion {
 public:
  explicit ChosenVersion(std::int32_t version) : _version(version) {}
  std::int32_t gestaltSystemVersion() override { return _version; }

 private:
  const std::int32_t _version;
  const platform::Substitute<platform::SystemVersion> _inForce{*this};
};

constexpr std::int32_t LEOPARD = 0x1058;
constexpr std::int32_t SNOW_LEOPARD = 0x1060;

void writeFile(const fs::path& path, std::string_view content) { std::ofstream(path) << content; }

Texts withEvent(std::string_view event, Texts texts) {
  texts.event = event;
  return texts;
}

const Texts USB{.event = "disk_mounted",
                .mac = "02:00:00:00:00:01",
                .ip = "192.168.1.5",
                .uuid = "1234-ABCD",
                .label = "USB Disk"};
const Texts CARD{.event = "disk_mounted",
                 .mac = "02:00:00:00:00:01",
                 .ip = "192.168.1.5",
                 .uuid = "5678-EF01",
                 .label = "CARD"};
const Texts ELSEWHERE{.event = "disk_mounted",
                      .mac = "02:00:00:00:00:02",
                      .ip = "192.168.1.6",
                      .uuid = "9999-9999",
                      .label = "Elsewhere"};

class ControllerTest : public testing::Test {
 protected:
  ControllerTest() { fs::create_directory(home.desktop() + "/sub"); }
  ~ControllerTest() override { gSystemWillTerminate = false; }

  void receive(std::string_view message) { controller->server(unusedServer, bytesOf(message), {}); }
  void receive(const Texts& texts) { receive(datagram(texts)); }
  /// From that address, while the others come from an unknown one.
  void receiveFrom(const std::string& address, std::uint16_t port, std::string_view message) {
    controller->server(unusedServer, bytesOf(message),
                       test::rawBytes(test::internetAddress(address, port)));
  }

  /// Acts on the event at once, on this thread, as the handler thread would.
  void process(const Texts& texts) { controller->_process(makeDisk(texts)); }

  /// Runs the main thread's loop until the handler thread has acted on all that waited.
  [[nodiscard]] bool settle() {
    const Texts last{
        .event = "disk_mounted", .mac = "last", .ip = "last", .uuid = "last", .label = "last"};
    receive(last);
    const bool came = runUntil([&] { return isMounted("last"); });
    receive(withEvent("disk_unmounted", last));
    const bool went = came && runUntil([&] { return !isMounted("last"); });
    forgetLinesOf(last);
    return went;
  }

  /// Has the handler thread wait for the main thread, which must not run its loop meanwhile. What
  /// arrives from now on stays waiting until it does.
  [[nodiscard]] bool holdHandler() {
    receive(BLOCKER);
    return waitUntil([&] { return controller->waitingEvents() == 0; });
  }

  /// The mounted record with the uuid, or null.
  [[nodiscard]] DiskPtr recordOf(const std::string& uuid) const {
    const std::vector<DiskPtr> disks = controller->mountedDisks();
    const auto found = std::ranges::find(disks, Text(uuid), &Disk::uuid);
    return found == disks.end() ? nullptr : *found;
  }

  [[nodiscard]] bool isMounted(const std::string& uuid) const { return recordOf(uuid) != nullptr; }

  [[nodiscard]] std::vector<Texts> mountedTexts() const {
    std::vector<Texts> all;
    for (const DiskPtr& disk : controller->mountedDisks()) {
      all.push_back(textsOf(*disk));
    }
    return all;
  }

  [[nodiscard]] std::vector<PlainModel::Record> mountedRecords() const {
    std::vector<PlainModel::Record> all;
    for (const DiskPtr& disk : controller->mountedDisks()) {
      all.push_back({.texts = textsOf(*disk),
                     .lastUpdateTime = disk->lastUpdateTime().value_or(Disk::Date::min())});
    }
    return all;
  }

  [[nodiscard]] std::map<std::string, std::string> shortcuts() const {
    return shortcutsIn(home.desktop());
  }

  [[nodiscard]] fs::path onDesktop(const std::string& name) const {
    return fs::path(home.desktop()) / name;
  }

  /// Has the file at the path removed as one that the record file lists, and returns what the log
  /// says about the removal itself.
  [[nodiscard]] std::vector<LogLine> removeRecorded(const std::string& path) {
    fs::create_directories(home.userSupport());
    writeFile(home.userSupport() + "/" + std::string(DISK_RECORD_FILE), "start\n" + path + "\nend");
    log.take();
    Controller::deleteRecordedDisks();
    std::vector<LogLine> lines = log.take();
    const auto found = info("Disk record " + path + " has been found. Delete the shortcut.");
    EXPECT_EQ(std::erase(lines, found), 1U);
    return lines;
  }

  /// The lines since the last time; lines of `settle` are left out.
  std::vector<LogLine> newLines() {
    std::vector<LogLine> lines = log.take();
    std::erase_if(lines, [&](const LogLine& line) {
      return std::ranges::find(_forgotten, line) != _forgotten.end();
    });
    return lines;
  }

  /// The controller's state is the model's.
  /// Whether this system's shortcuts are script applications.
  bool shortcutsAreApplications() {
    process(USB);
    const bool areThey = fs::is_directory(onDesktop("USB Disk.app"));
    controller->unmountAll();
    newLines();
    return areThey;
  }

  void expectLike(PlainModel& model) {
    EXPECT_EQ(mountedRecords(), model.mounted);
    EXPECT_EQ(shortcuts(), model.desktop);
    std::vector<LogLine> lines = newLines();
    for (LogLine& line : lines) {
      constexpr std::string_view FAILURE = "Error when deleting alias file. Reason: ";
      if (line.text.starts_with(FAILURE)) {
        line.text = FAILURE;
      }
    }
    EXPECT_EQ(lines, model.lines);
    model.lines.clear();
  }

  static inline const Texts BLOCKER{.event = "disk_mounted",
                                    .mac = "blocker",
                                    .ip = "blocker",
                                    .uuid = "blocker",
                                    .label = "Blocker"};

  const TemporaryHome home;
  RecordingLog log;
  ManualClock clock;
  Server unusedServer;
  std::optional<OpenController> controller{std::in_place};

 private:
  void forgetLinesOf(const Texts& texts) {
    for (const Texts& each : {texts, withEvent("disk_unmounted", texts)}) {
      _forgotten.push_back(info(receivedLine(datagram(each), each)));
    }
  }

  std::vector<LogLine> _forgotten;
};

using ControllerDeathTest = ControllerTest;

// Which announcements are taken.

TEST_F(ControllerTest, AnAnnouncementIsTakenWhenItHasWhatItsEventNeeds) {
  ASSERT_TRUE(holdHandler());
  const std::vector<Text> events{"disk_mounted",
                                 "disk_status",
                                 "disk_unmounted",
                                 "no_disk",
                                 "DISK_MOUNTED",
                                 "disk_mounted ",
                                 "",
                                 "other",
                                 std::nullopt};
  for (const Text& event : events) {
    for (unsigned present = 0; present < 16; ++present) {
      const auto textIf = [&](unsigned bit) {
        return (present & bit) != 0 ? Text("") : std::nullopt;
      };
      const Texts texts{
          .event = event, .mac = textIf(1), .ip = textIf(2), .uuid = textIf(4), .label = textIf(8)};
      bool expected = false;
      if (event == "disk_mounted" || event == "disk_status") {
        expected = present == 15;
      } else if (event == "disk_unmounted") {
        expected = (present & 5U) == 5;
      } else if (event == "no_disk") {
        expected = (present & 1U) == 1;
      }
      receive(texts);
      EXPECT_EQ(controller->waitingEvents(), expected ? 1U : 0U)
          << textOrNull(event) << " with " << present;
      controller->setDiskEventQueue({});
    }
  }
}

TEST_F(ControllerTest, InvalidAnnouncementsLeaveNoTrace) {
  ASSERT_TRUE(holdHandler());
  log.take();
  receive("event:disk_status;mac:m;ip:i;uuid:u");
  receive("event:disk_status;mac:m;ip:i;uuid:u;label:l;unknown:x");
  receive("event:no_disk;mac:m\xFF");
  receive("event:other;mac:m;ip:i;uuid:u;label:l");
  receive("mac:m;ip:i;uuid:u;label:l");
  receive("event:no_disk");
  receive("noise");
  receive("");
  EXPECT_EQ(controller->waitingEvents(), 0U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, AMountedEventWithoutLabelIsDropped) {
  ASSERT_TRUE(holdHandler());
  receive("event:disk_mounted;mac:m;ip:i;uuid:u");
  EXPECT_EQ(controller->waitingEvents(), 0U);
}

TEST_F(ControllerTest, ANoDiskEventWithOnlyTheDeviceIsTaken) {
  ASSERT_TRUE(holdHandler());
  receive("event:no_disk;mac:m");
  EXPECT_EQ(controller->waitingEvents(), 1U);
}

TEST_F(ControllerTest, AfterTerminationDatagramsAreNotEvenRead) {
  ASSERT_TRUE(holdHandler());
  log.take();
  gSystemWillTerminate = true;
  receive(USB);
  EXPECT_EQ(controller->waitingEvents(), 0U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, ARepeatedAnnouncementIsDroppedWhileTheFirstWaits) {
  const Texts status = withEvent("disk_status", USB);
  ASSERT_TRUE(holdHandler());
  receive(status);
  receive(status);
  EXPECT_EQ(controller->waitingEvents(), 1U);
  ASSERT_TRUE(settle());
  const DiskPtr mounted = recordOf(*USB.uuid);
  ASSERT_NE(mounted, nullptr);
  const auto before = mounted->lastUpdateTime();
  clock.advance(10s);
  receive(status);
  ASSERT_TRUE(settle());
  EXPECT_EQ(mounted->lastUpdateTime(), *before + 10s);
}

TEST_F(ControllerTest, WhatAWaitingEventLacksMatchesAnything) {
  ASSERT_TRUE(holdHandler());
  receive("event:no_disk;mac:m");
  receive("event:no_disk;mac:m;uuid:u");
  EXPECT_EQ(controller->waitingEvents(), 1U);
  receive("event:no_disk;mac:n;uuid:u");
  receive("event:no_disk;mac:n");
  EXPECT_EQ(controller->waitingEvents(), 3U);
}

TEST_F(ControllerTest, DifferentEventsOfOneDiskAllWait) {
  ASSERT_TRUE(holdHandler());
  receive(USB);
  receive(withEvent("disk_status", USB));
  receive(withEvent("disk_unmounted", USB));
  receive(withEvent("no_disk", USB));
  EXPECT_EQ(controller->waitingEvents(), 4U);
  receive(USB);
  EXPECT_EQ(controller->waitingEvents(), 4U);
  receive(CARD);
  EXPECT_EQ(controller->waitingEvents(), 5U);
}

// How much is taken from whom.

TEST_F(ControllerTest, ASenderIsItsAddressWhateverThePort) {
  ASSERT_TRUE(holdHandler());
  for (int number = 0; number < 1030; ++number) {
    receiveFrom("192.0.2.99", static_cast<std::uint16_t>(1000 + number),
                "event:no_disk;mac:" + std::to_string(number));
  }
  const std::vector<DiskPtr> waiting = controller->diskEventQueue();
  ASSERT_EQ(waiting.size(), 1024U);
  EXPECT_EQ(waiting.front()->macAddress(), "0");
  EXPECT_EQ(waiting.back()->macAddress(), "1023");
  receiveFrom("192.0.2.5", 1000, "event:no_disk;mac:other");
  EXPECT_EQ(controller->waitingEvents(), 1025U);
}

TEST_F(ControllerTest, AFloodOfEventsFromManySendersIsCutOff) {
  ASSERT_TRUE(holdHandler());
  for (int number = 0; number < 16384 + 50; ++number) {
    receiveFrom("192.0.2." + std::to_string(number % 20), 1000,
                "event:no_disk;mac:" + std::to_string(number));
  }
  EXPECT_EQ(controller->waitingEvents(), 16384U);
}

TEST_F(ControllerTest, AFloodOfLongTextsIsCutOff) {
  ASSERT_TRUE(holdHandler());
  const std::string filler(60000, 'x');
  for (int number = 0; number < 30; ++number) {
    receiveFrom("192.0.2.99", 1000,
                "event:no_disk;mac:" + std::to_string(number) + ";label:" + filler);
  }
  EXPECT_EQ(controller->waitingEvents(), std::size_t{1024} * 1024 / (filler.size() + 8));
}

TEST_F(ControllerTest, AFloodOfDisksLeavesRoomForThoseOfOthers) {
  for (int number = 0; number < 1100; ++number) {
    const std::string name = std::to_string(number);
    receiveFrom(
        "192.0.2.99", 1000,
        datagram({.event = "disk_status", .mac = "m", .ip = "i", .uuid = name, .label = name}));
    if (number % 500 == 499) {
      ASSERT_TRUE(runUntil([&] { return controller->waitingEvents() == 0; }));
    }
  }
  receiveFrom("192.0.2.5", 1000, datagram(USB));
  ASSERT_TRUE(runUntil([&] { return controller->waitingEvents() == 0; }));
  ASSERT_TRUE(settle());
  EXPECT_EQ(controller->mountedDisks().size(), 1025U);
  EXPECT_TRUE(isMounted("1023"));
  EXPECT_FALSE(isMounted("1024"));
  EXPECT_TRUE(isMounted(*USB.uuid));
  // Announcements of known disks are still taken.
  clock.advance(100s);
  receiveFrom("192.0.2.99", 1000, "event:disk_status;mac:m;ip:i;uuid:7;label:7");
  ASSERT_TRUE(settle());
  clock.advance(100s);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("7.app", "smb://guest:@i/7")));
}

TEST_F(ControllerTest, TheFirstDropOfASenderIsLogged) {
  ASSERT_TRUE(holdHandler());
  log.take();
  for (int number = 0; number < 2000; ++number) {
    receiveFrom("192.0.2.99", 1000, "event:no_disk;mac:" + std::to_string(number));
  }
  EXPECT_THAT(log.lines(), ElementsAre(error("Announcements from 192.0.2.99 are dropped: 1024 of "
                                             "its announcements wait, and no sender may have more "
                                             "waiting")));
}

TEST_F(ControllerTest, AnAnnouncementDoesNotWaitForTheFloodOfAnotherSender) {
  ASSERT_TRUE(holdHandler());
  for (int number = 0; number < 1000; ++number) {
    const std::string name = std::to_string(number);
    receiveFrom(
        "192.0.2.99", 1000,
        datagram({.event = "disk_status", .mac = "m", .ip = "i", .uuid = name, .label = name}));
  }
  receiveFrom("192.0.2.5", 1000, datagram(USB));
  ASSERT_TRUE(runUntil([&] { return isMounted(*USB.uuid); }));
  EXPECT_GT(controller->waitingEvents(), 900U);
}

TEST_F(ControllerTest, AStrangeSenderAddressIsASenderLikeAnother) {
  ASSERT_TRUE(holdHandler());
  const std::vector<std::byte> tooShort(3);
  const std::vector<std::byte> tooLong(200, std::byte{0xFF});
  controller->server(unusedServer, bytesOf("event:no_disk;mac:a"), tooShort);
  controller->server(unusedServer, bytesOf("event:no_disk;mac:b"), tooLong);
  EXPECT_EQ(controller->waitingEvents(), 2U);
}

// The properties.

TEST_F(ControllerTest, TheMountedRecordsAreThoseThatWereSet) {
  process(USB);
  const auto records = std::vector{makeDisk(CARD), makeDisk(ELSEWHERE)};
  controller->setMountedDisks(records);
  EXPECT_EQ(controller->mountedDisks(), records);
  EXPECT_FALSE(isMounted(*USB.uuid));
  EXPECT_TRUE(isMounted(*CARD.uuid));
  // The desktop stays as it is.
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("USB Disk.app", "smb://guest:@192.168.1.5/USB%20Disk")));
  process({.event = "no_disk", .mac = CARD.mac});
  EXPECT_THAT(mountedTexts(), ElementsAre(ELSEWHERE));
  controller->setMountedDisks({});
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, TheWaitingEventsAreThoseThatWereSet) {
  ASSERT_TRUE(holdHandler());
  receive(USB);
  receive(CARD);
  std::vector<DiskPtr> events = controller->diskEventQueue();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(textsOf(*events[0]), USB);
  EXPECT_EQ(textsOf(*events[1]), CARD);
  events = {makeDisk(ELSEWHERE), events[1]};
  controller->setDiskEventQueue(events);
  EXPECT_EQ(controller->diskEventQueue(), events);
  receive(ELSEWHERE);
  EXPECT_EQ(controller->waitingEvents(), 2U);
  receive(USB);
  EXPECT_EQ(controller->waitingEvents(), 3U);
  ASSERT_TRUE(settle());
  EXPECT_THAT(mountedTexts(), ElementsAre(BLOCKER, ELSEWHERE, CARD, USB));
}

TEST_F(ControllerTest, ADiskThatIsJustBeingMountedJoinsTheListThatWasSet) {
  ASSERT_TRUE(holdHandler());
  controller->setMountedDisks({makeDisk(USB)});
  ASSERT_TRUE(runUntil([&] { return isMounted("blocker"); }));
  EXPECT_THAT(mountedTexts(), ElementsAre(USB, BLOCKER));
}

TEST_F(ControllerTest, ThePropertiesMayBeSetWhileTheHandlerWorks) {
  std::atomic<bool> isDone = false;
  std::jthread thread([&] {
    while (!isDone) {
      controller->setMountedDisks(controller->mountedDisks());
      controller->setDiskEventQueue(controller->diskEventQueue());
    }
  });
  for (int number = 0; number < 20; ++number) {
    const std::string name = std::to_string(number);
    receive({.event = "disk_mounted", .mac = "m", .ip = "i", .uuid = name, .label = name});
    receive({.event = "disk_unmounted", .mac = "m", .uuid = name});
  }
  // Meanwhile the handler thread may have taken what is set again, so nothing else is certain.
  EXPECT_TRUE(runUntil([&] { return controller->waitingEvents() == 0; }));
  isDone = true;
}

TEST_F(ControllerDeathTest, NullIsNeitherARecordNorAnEvent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(controller->setMountedDisks({nullptr}),
               AllOf(HasSubstr("Controller::setMountedDisks"), HasSubstr("disk != null")));
  EXPECT_DEATH(controller->setDiskEventQueue({nullptr}),
               AllOf(HasSubstr("Queue::enqueue"), HasSubstr("disk != null")));
}

// What is done about them.

TEST_F(ControllerTest, AMountedDiskGetsAShortcutAndARecord) {
  receive(USB);
  ASSERT_TRUE(runUntil([&] { return isMounted("1234-ABCD"); }));
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("USB Disk.app", "smb://guest:@192.168.1.5/USB%20Disk")));
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_EQ(controller->mountedDisks()[0]->lastUpdateTime(), clock.now());
  EXPECT_THAT(log.lines(), ElementsAre(info(receivedLine(datagram(USB), USB))));
  EXPECT_EQ(controller->waitingEvents(), 0U);
}

TEST_F(ControllerTest, WhatWaitsIsLookedAtEveryHalfSecond) {
  EXPECT_EQ(DISK_EVENT_HANDLER_INTERVAL, 0.5);
  const auto begin = std::chrono::steady_clock::now();
  controller.emplace();
  receive(USB);
  ASSERT_TRUE(runUntil([&] { return isMounted("1234-ABCD"); }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 500ms);
}

TEST_F(ControllerTest, WhileItSleepsLittleOfTheProgramIsHeld) {
  const std::size_t all = holdAllOfFiles();
  const auto isGivenBack = [&] { return heldOfFiles() < all / 2; };
  controller.emplace();
  EXPECT_TRUE(waitUntil(isGivenBack)) << "after the start";
  holdAllOfFiles();
  receive(USB);
  EXPECT_TRUE(runUntil(isGivenBack)) << "after an announcement";
}

/// A desktop on which nothing happens; what was asked for is recorded, and on which thread.
class RecordingDesktop final : public platform::ScriptRunner,
                               public platform::ImageReader,
                               public platform::Workspace {
 public:
  bool setIcon(const platform::Image& image, const std::string& forFile,
               const Text& /*beneath*/) override {
    take("icon " + fs::path(image.path()).filename().string() + " for " + forFile);
    return true;
  }

  std::unique_ptr<platform::Image> imageWithContentsOfFile(const std::string& path) override {
    take("read " + fs::path(path).filename().string());
    return std::make_unique<FileImage>(path);
  }

  std::function<void()> whileAScriptRuns = [] {};
  std::vector<std::string> calls;
  std::vector<platform::Script> scripts;
  bool everythingWasOnTheMainThread = true;

 private:
  class FileImage final : public platform::Image {
   public:
    explicit FileImage(std::string path) : _path(std::move(path)) {}
    [[nodiscard]] const std::string& path() const override { return _path; }

   private:
    std::string _path;
  };

  bool _execute(const platform::Script& script) override {
    take("script");
    scripts.push_back(script);
    whileAScriptRuns();
    return true;
  }

  void take(std::string call) {
    calls.push_back(std::move(call));
    everythingWasOnTheMainThread &= RunLoop::main().isCurrent();
  }

  const platform::Substitute<platform::ScriptRunner> _scripts{*this};
  const platform::Substitute<platform::ImageReader> _images{*this};
  const platform::Substitute<platform::Workspace> _icons{*this};
};

TEST_F(ControllerTest, TheMainThreadMakesTheShortcutAndThenGivesItItsIcon) {
  RecordingDesktop desktop;
  receive(USB);
  ASSERT_TRUE(runUntil([&] { return isMounted("1234-ABCD"); }));
  EXPECT_THAT(desktop.calls,
              ElementsAre("script", "read icon.ico",
                          "icon icon.ico for " + onDesktop("USB Disk.app").string()));
  EXPECT_TRUE(desktop.everythingWasOnTheMainThread);
  // The last use of the desktop must be over.
  controller.reset();
}

TEST_F(ControllerTest, ADesktopThatMovesMeanwhileIsTheNextShortcutsDesktop) {
  RecordingDesktop desktop;
  desktop.whileAScriptRuns = [&] {
    fs::create_directories(home.path() + "/config");
    writeFile(home.path() + "/config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Bureau\"\n");
  };
  const auto lastDesktop = [&] {
    return std::get<platform::ShortcutScript>(desktop.scripts.back()).desktop;
  };
  process(USB);
  EXPECT_EQ(lastDesktop(), home.desktop());
  EXPECT_EQ(desktop.calls.back(), "icon icon.ico for " + home.desktop() + "/USB Disk.app");
  process(CARD);
  EXPECT_EQ(lastDesktop(), home.path() + "/Bureau");
  EXPECT_EQ(desktop.calls.back(), "icon icon.ico for " + home.path() + "/Bureau/CARD.app");
}

TEST_F(ControllerTest, AStatusOfAnUnknownDiskMountsItAndSaysSo) {
  receive(withEvent("disk_status", USB));
  ASSERT_TRUE(runUntil([&] { return isMounted("1234-ABCD"); }));
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("USB Disk.app", "smb://guest:@192.168.1.5/USB%20Disk")));
  EXPECT_THAT(mountedTexts(), ElementsAre(withEvent("disk_status", USB)));
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Disk USB Disk is being mounted because it was already mounted on "
                               "the device as stated in disk_status message")));
}

TEST_F(ControllerTest, AnUnmountedDiskLosesItsShortcutAndItsRecord) {
  receive(USB);
  receive(CARD);
  receive("event:disk_unmounted;mac:other;uuid:1234-ABCD");
  ASSERT_TRUE(settle());
  EXPECT_THAT(mountedTexts(), ElementsAre(CARD));
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("CARD.app", "smb://guest:@192.168.1.5/CARD")));
}

TEST_F(ControllerTest, EventsAreActedOnInTheOrderInWhichTheyArrived) {
  ASSERT_TRUE(holdHandler());
  receive(USB);
  receive(CARD);
  receive(ELSEWHERE);
  receive(withEvent("disk_unmounted", CARD));
  receive(withEvent("disk_status", CARD));
  ASSERT_TRUE(settle());
  EXPECT_THAT(mountedTexts(), ElementsAre(BLOCKER, USB, ELSEWHERE, withEvent("disk_status", CARD)));
}

TEST_F(ControllerTest, AKnownDiskKeepsItsRecordAndShortcutWhateverTheDeviceSaysLater) {
  for (const char* event : {"disk_mounted", "disk_status"}) {
    process(USB);
    const DiskPtr record = controller->mountedDisks()[0];
    log.take();
    clock.advance(7s);
    process(
        {.event = event, .mac = "other", .ip = "10.0.0.1", .uuid = "1234-ABCD", .label = "Other"});
    EXPECT_EQ(controller->mountedDisks(), std::vector{record});
    EXPECT_THAT(mountedTexts(), ElementsAre(USB));
    EXPECT_EQ(record->lastUpdateTime(), clock.now());
    EXPECT_THAT(shortcuts(),
                ElementsAre(Pair("USB Disk.app", "smb://guest:@192.168.1.5/USB%20Disk")));
    EXPECT_THAT(log.lines(), IsEmpty());
    controller->unmountAll();
  }
}

TEST_F(ControllerTest, AnUnknownDiskIsNotUnmountedForItsDevice) {
  process(USB);
  log.take();
  process({.event = "disk_unmounted", .mac = USB.mac, .uuid = "unknown"});
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_EQ(shortcuts().size(), 1U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, NoDiskRemovesEveryDiskOfTheDevice) {
  receive(USB);
  receive(ELSEWHERE);
  receive(CARD);
  ASSERT_TRUE(settle());
  log.take();
  receive("event:no_disk;mac:02:00:00:00:00:01");
  ASSERT_TRUE(settle());
  EXPECT_THAT(mountedTexts(), ElementsAre(ELSEWHERE));
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("Elsewhere.app", "smb://guest:@192.168.1.6/Elsewhere")));
  EXPECT_THAT(newLines(),
              ElementsAre(info("Disk USB Disk is being unmounted because it was already unmounted "
                               "on the device as stated in no_disk message"),
                          info("Disk CARD is being unmounted because it was already unmounted on "
                               "the device as stated in no_disk message")));
}

TEST_F(ControllerTest, NoDiskOfAnotherDeviceDoesNothing) {
  process(USB);
  log.take();
  process({.event = "no_disk", .mac = "02:00:00:00:00:0A"});
  process({.event = "no_disk", .mac = "", .uuid = USB.uuid});
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, DisksOfOneUuidAreOneDiskWhateverTheirDevice) {
  process(USB);
  clock.advance(1s);
  process({.event = "disk_mounted", .mac = "m", .ip = "i", .uuid = USB.uuid, .label = "L"});
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
}

TEST_F(ControllerTest, AnyOtherEventDoesNothing) {
  process(USB);
  log.take();
  process(withEvent("DISK_UNMOUNTED", USB));
  process({.uuid = USB.uuid});
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, ARecordIsFoundByItsUuidAlone) {
  process(USB);
  process({.event = "disk_unmounted", .uuid = "1234-abcd"});
  Texts without = withEvent("disk_unmounted", USB);
  without.uuid = std::nullopt;
  process(without);
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  process({.event = "disk_unmounted", .uuid = "1234-ABCD"});
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, OnlyADiskWithoutRecordWouldBeMountedAnew) {
  process(USB);
  EXPECT_FALSE(controller->_shouldDiskRemounted(
      *makeDisk({.mac = "other", .ip = "other", .uuid = USB.uuid, .label = "other"})));
  EXPECT_TRUE(controller->_shouldDiskRemounted(*makeDisk(CARD)));
}

TEST_F(ControllerTest, AfterTerminationWaitingEventsAreNeverProcessed) {
  // A tick may come between the arrival and the flag; then the controller is made anew.
  for (int attempt = 0; attempt < 10; ++attempt) {
    receive(USB);
    gSystemWillTerminate = true;
    if (controller->waitingEvents() == 1) {
      break;
    }
    gSystemWillTerminate = false;
    controller.emplace();
  }
  ASSERT_EQ(controller->waitingEvents(), 1U);
  int passed = 0;
  const auto timer = RunLoop::main().scheduleTimer(RunLoop::Seconds(0.1), [&] { ++passed; });
  ASSERT_TRUE(runUntil([&] { return passed >= 15; }));
  controller->_processNextDiskEvent();
  EXPECT_EQ(controller->waitingEvents(), 1U);
  EXPECT_THAT(shortcuts(), IsEmpty());
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, ATickThatHasBegunEmptiesTheQueueInSpiteOfTermination) {
  ASSERT_TRUE(holdHandler());
  receive(USB);
  receive(CARD);
  gSystemWillTerminate = true;
  ASSERT_TRUE(runUntil([&] { return isMounted("5678-EF01"); }));
  EXPECT_THAT(mountedTexts(), ElementsAre(BLOCKER, USB, CARD));
}

TEST_F(ControllerTest, EventsThatArriveDuringATickBelongToIt) {
  ASSERT_TRUE(holdHandler());
  receive(USB);
  RunLoop::main().perform([&] {
    receive(CARD);
    // The next tick would do nothing.
    gSystemWillTerminate = true;
  });
  ASSERT_TRUE(runUntil([&] { return isMounted("5678-EF01"); }));
  EXPECT_THAT(mountedTexts(), ElementsAre(BLOCKER, USB, CARD));
}

// Shortcuts.

TEST_F(ControllerTest, AnOldShortcutMakesWayForANewOneAndIsNotKept) {
  writeShortcut(onDesktop("USB Disk.app"), "URL=old\n");
  process(USB);
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("USB Disk.app", "smb://guest:@192.168.1.5/USB%20Disk")));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_FALSE(fs::exists(home.trash()));
}

TEST_F(ControllerDeathTest, AnOldShortcutThatCannotBeRemovedIsReplacedAllTheSame) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        process(USB);
        EXPECT_TRUE(test::refuseOnce({__NR_renameat2, {}}, EACCES));
        process({.event = "disk_mounted",
                 .mac = "m",
                 .ip = "192.168.1.9",
                 .uuid = "other",
                 .label = USB.label});
        EXPECT_THAT(log.take(),
                    ElementsAre(error("Error when deleting alias file. Reason: Permission "
                                      "denied")));
        EXPECT_THAT(shortcuts(),
                    ElementsAre(Pair("USB Disk.app", "smb://guest:@192.168.1.9/USB%20Disk")));
        EXPECT_TRUE(isMounted("other"));
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ControllerTest, ALinkInTheShortcutsPlaceIsReplacedAndItsTargetIsNot) {
  writeFile(home.path() + "/target", "URL=target\n");
  fs::create_symlink(home.path() + "/target", onDesktop("USB Disk.app"));
  process(USB);
  EXPECT_FALSE(fs::is_symlink(onDesktop("USB Disk.app")));
  EXPECT_EQ(urlIn(onDesktop("USB Disk.app")), "smb://guest:@192.168.1.5/USB%20Disk");
  EXPECT_EQ(urlIn(home.path() + "/target"), "target");
}

TEST_F(ControllerTest, WhatTheUserHasInTheShortcutsPlaceIsInTheTrashAfterwards) {
  fs::create_directory(onDesktop("USB Disk.app"));
  writeFile(onDesktop("USB Disk.app/kept"), "the user's");
  writeFile(onDesktop("CARD.app"), "URL=the user's\n");
  process(USB);
  process(CARD);
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_THAT(mountedTexts(), ElementsAre(USB, CARD));
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("CARD.app", "smb://guest:@192.168.1.5/CARD"),
                          Pair("USB Disk.app", "smb://guest:@192.168.1.5/USB%20Disk")));
  EXPECT_TRUE(fs::exists(home.trash() + "/USB Disk.app/kept"));
  EXPECT_EQ(urlIn(home.trash() + "/CARD.app"), "the user's");
}

TEST_F(ControllerTest, WhatCannotBeMovedToTheTrashStaysAndTheDiskIsMountedAllTheSame) {
  // Nothing can be made where the trash would be.
  writeFile(home.path() + "/data", "");
  writeFile(onDesktop("USB Disk.app"), "URL=the user's\n");
  process(USB);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(log.take()[0].text,
              HasSubstr("Error when deleting alias file. Reason: Not moved to the trash: "));
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("USB Disk.app", "the user's")));
  process(withEvent("disk_unmounted", USB));
  EXPECT_THAT(log.take(), ElementsAre(NOT_OURS));
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("USB Disk.app", "the user's")));
}

TEST_F(ControllerTest, WhatTheUserHasPutInThePlaceOfAShortcutStays) {
  process(USB);
  process(CARD);
  for (const char* const name : {"USB Disk.app", "CARD.app"}) {
    fs::remove_all(onDesktop(name));
    writeFile(onDesktop(name), "URL=the user's\n");
  }
  process(withEvent("disk_unmounted", USB));
  EXPECT_THAT(log.take(), ElementsAre(NOT_OURS));
  controller->unmountAll();
  EXPECT_THAT(log.take(), ElementsAre(NOT_OURS));
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(shortcuts(),
              ElementsAre(Pair("CARD.app", "the user's"), Pair("USB Disk.app", "the user's")));
}

TEST_F(ControllerTest, AShortcutIsRemovedUnderTheLabelWithWhichItWasMade) {
  process(USB);
  Texts renamed = USB;
  renamed.label = "Renamed";
  process(renamed);
  writeFile(onDesktop("Renamed.app"), "URL=kept\n");
  process(withEvent("disk_unmounted", renamed));
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("Renamed.app", "kept")));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, AShortcutThatTheUserThrewAwayCostsOneLine) {
  process(USB);
  fs::remove_all(onDesktop("USB Disk.app"));
  process(withEvent("disk_unmounted", USB));
  EXPECT_THAT(log.lines(), ElementsAre(NOT_THERE));
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, WithoutADesktopFolderDisksAreMountedAndForgottenAllTheSame) {
  fs::remove_all(home.desktop());
  process(USB);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  process(withEvent("disk_unmounted", USB));
  EXPECT_THAT(log.lines(), ElementsAre(NOT_THERE));
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_FALSE(fs::exists(home.desktop()));
}

TEST_F(ControllerTest, AScriptThatDoesNotRunIsPassedOverInSilence) {
  Texts odd = USB;
  odd.label = "Quo\"te";
  process(odd);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(shortcuts(), IsEmpty());
  EXPECT_THAT(mountedTexts(), ElementsAre(odd));
  process(withEvent("disk_unmounted", odd));
  EXPECT_THAT(log.lines(), ElementsAre(NOT_THERE));
}

TEST_F(ControllerTest, NothingOutsideTheDesktopFolderIsTouched) {
  writeFile(home.path() + "/Outside.app", "URL=outside\n");
  fs::create_directory(home.path() + "/folder");
  writeFile(home.path() + "/folder/Outside.app", "URL=outside\n");
  fs::create_directory_symlink(home.path() + "/folder", onDesktop("link"));
  for (const std::string label :
       {"../Outside", "link/Outside", "sub/../../Outside", "../folder/Outside"}) {
    const Texts hostile{
        .event = "disk_mounted", .mac = "m", .ip = "i", .uuid = label, .label = label};
    process(hostile);
    process(withEvent("disk_unmounted", hostile));
  }
  EXPECT_EQ(urlIn(home.path() + "/Outside.app"), "outside");
  EXPECT_EQ(urlIn(home.path() + "/folder/Outside.app"), "outside");
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, TheShortcutsPathIsTheDesktopAndTheLabelAsItIs) {
  RecordingDesktop desktop;
  for (const std::string label : {"USB Disk", "a/../b%d"}) {
    process({.event = "disk_mounted", .mac = "m", .ip = "i", .uuid = label, .label = label});
    EXPECT_EQ(desktop.calls.back(), "icon icon.ico for " + home.desktop() + "/" + label + ".app");
  }
}

/// The name of the share in the URL of the shortcut of a disk with this label.
Text escapedInShortcut(const std::string& label) {
  RecordingDesktop desktop;
  OpenController()._process(
      makeDisk({.event = "disk_mounted", .mac = "m", .ip = "i", .uuid = "u", .label = label}));
  return desktop.scripts.size() == 1
             ? std::get<platform::ShortcutScript>(desktop.scripts[0]).encodedLabel
             : Text("not one script");
}

TEST_F(ControllerTest, WhatMayNotStandInAUrlIsEscaped) {
  EXPECT_EQ(escapedInShortcut("USB Disk"), "USB%20Disk");
  EXPECT_EQ(escapedInShortcut(""), "");
  const std::string legal =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.!~*'();/?:@&=+$,";
  EXPECT_EQ(escapedInShortcut(legal), legal);
  // A double quote or a backslash would keep the script from running.
  EXPECT_EQ(escapedInShortcut(" #%<>[]^`{|}\x7F"), "%20%23%25%3C%3E%5B%5D%5E%60%7B%7C%7D%7F");
  std::string control;
  for (char character = 0; character < 0x20; ++character) {
    control += character;
  }
  EXPECT_EQ(escapedInShortcut(control),
            "%00%01%02%03%04%05%06%07%08%09%0A%0B%0C%0D%0E%0F"
            "%10%11%12%13%14%15%16%17%18%19%1A%1B%1C%1D%1E%1F");
}

TEST_F(ControllerTest, WhatIsNotAsciiCannotBeEscaped) {
  EXPECT_EQ(escapedInShortcut("L\xC3\xADn"), std::nullopt);
  EXPECT_EQ(escapedInShortcut("\x80"), std::nullopt);
  Texts foreign = USB;
  foreign.label = "L\xC3\xADn";
  process(foreign);
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("L\xC3\xADn.app", "smb://guest:@192.168.1.5/(null)")));
}

TEST_F(ControllerTest, SystemsFromSnowLeopardOnAreKnown) {
  const std::vector<std::pair<std::int32_t, bool>> versions{
      {0, false},     {LEOPARD, false}, {0x105F, false}, {SNOW_LEOPARD, true},
      {0x1061, true}, {0x10A0, true},   {-1, false}};
  for (const auto& [version, expected] : versions) {
    const ChosenVersion system(version);
    // Only these say why a removal failed.
    EXPECT_EQ(removeRecorded(onDesktop("none.app")).size(), expected ? 1U : 0U) << version;
  }
}

TEST_F(ControllerTest, BeforeSnowLeopardAShortcutIsRemovedByScriptAndFailuresAreSilent) {
  const ChosenVersion system(LEOPARD);
  receive(USB);
  receive(withEvent("disk_unmounted", USB));
  ASSERT_TRUE(settle());
  EXPECT_THAT(shortcuts(), IsEmpty());
  process(USB);
  fs::remove_all(onDesktop("USB Disk.app"));
  newLines();
  process(withEvent("disk_unmounted", USB));
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
  // The last use of the version must be over.
  controller.reset();
}

TEST_F(ControllerTest, BeforeSnowLeopardTheScriptLooksInTheDesktopFolderWhateverThePath) {
  const ChosenVersion system(LEOPARD);
  writeShortcut(onDesktop("USB.app"), "URL=old\n");
  EXPECT_THAT(removeRecorded("/nowhere/at/all/USB.app"), IsEmpty());
  EXPECT_THAT(shortcuts(), IsEmpty());
  writeShortcut(onDesktop("USB.app"), "URL=old\n");
  EXPECT_THAT(removeRecorded("/nowhere/USB.app//"), IsEmpty());
  EXPECT_THAT(shortcuts(), IsEmpty());
  writeFile(onDesktop("USB.app"), "URL=the user's\n");
  EXPECT_THAT(removeRecorded(onDesktop("USB.app")), IsEmpty());
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("USB.app", "the user's")));
}

TEST_F(ControllerTest, FromSnowLeopardOnOnlyThePathItselfIsRemoved) {
  const ChosenVersion system(SNOW_LEOPARD);
  writeFile(onDesktop("USB.app"), "URL=kept\n");
  const std::vector<LogLine> lines = removeRecorded("/nowhere/at/all/USB.app");
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("USB.app", "kept")));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0].text, HasSubstr("Error when deleting alias file. Reason: "));
}

// Liveness.

TEST_F(ControllerTest, TwoMinutesOfSilenceAreAllowedAndNotMore) {
  process(USB);
  clock.advance(120s);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_THAT(log.lines(), IsEmpty());
  clock.advance(1s);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(shortcuts(), IsEmpty());
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Disk USB Disk has not been updated in 121.000000 seconds, so it is "
                               "assumed to be unmounted!")));
}

TEST_F(ControllerTest, AFractionOfASecondCounts) {
  process(USB);
  clock.advance(120s + 1us);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Disk USB Disk has not been updated in 120.000001 seconds, so it is "
                               "assumed to be unmounted!")));
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, AClockThatWasSetBackKeepsADisk) {
  process(USB);
  clock.advance(-1000h);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
}

TEST_F(ControllerTest, AnAnnouncementIsASignOfLife) {
  process(USB);
  process(CARD);
  clock.advance(100s);
  process(withEvent("disk_status", USB));
  clock.advance(100s);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
}

TEST_F(ControllerTest, SilentDisksAreAllLoggedBeforeTheFirstIsRemovedInListOrder) {
  process(USB);
  clock.advance(1s);
  process(ELSEWHERE);
  log.take();
  // Different failures show the order of the removals.
  fs::remove_all(onDesktop("USB Disk.app"));
  fs::remove_all(onDesktop("Elsewhere.app"));
  fs::create_directory(onDesktop("Elsewhere.app"));
  clock.advance(130s);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Disk USB Disk has not been updated in 131.000000 seconds, so it is "
                               "assumed to be unmounted!"),
                          info("Disk Elsewhere has not been updated in 130.000000 seconds, so it "
                               "is assumed to be unmounted!"),
                          NOT_THERE, IS_A_FOLDER));
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

TEST_F(ControllerTest, ACheckWithoutMountedDisksDoesNothing) {
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, TheUpdateTimeOfAnUnknownDiskIsNobodys) {
  process(USB);
  const auto before = clock.now();
  clock.advance(5s);
  controller->_updateDiskUpdateTime(*makeDisk(CARD));
  EXPECT_EQ(controller->mountedDisks()[0]->lastUpdateTime(), before);
}

TEST_F(ControllerTest, AnUnmountedEventDoesNotWaitForSilence) {
  process(USB);
  clock.advance(10s);
  log.take();
  process(withEvent("disk_unmounted", USB));
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, ASilentDiskGoesByItselfAtTheCheckThatComesEveryHalfMinute) {
  EXPECT_EQ(DISK_UPDATE_TIME_CHECKER_INTERVAL, 30.0);
  const auto begin = std::chrono::steady_clock::now();
  controller.emplace();
  // Neither the first announcements nor those after a check bring one before its time.
  const auto announceAfterSilence = [&](std::chrono::steady_clock::time_point lastCheck) {
    receive(USB);
    ASSERT_TRUE(settle());
    clock.advance(121s);
    receive(CARD);
    ASSERT_TRUE(settle());
    if (std::chrono::steady_clock::now() - lastCheck < 25s) {
      EXPECT_TRUE(isMounted(*USB.uuid));
    }
  };
  announceAfterSilence(begin);
  EXPECT_TRUE(runUntil([&] { return !isMounted(*USB.uuid); }, 90s));
  EXPECT_THAT(shortcuts(), ElementsAre(Pair("CARD.app", "smb://guest:@192.168.1.5/CARD")));
  const auto elapsed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(elapsed, 30s);
  // It was the first check that could find it, and not a later one.
  EXPECT_LT(elapsed, 55s);
  announceAfterSilence(std::chrono::steady_clock::now());
}

TEST_F(ControllerTest, ACheckThatFoundNoDiskAtItsTimeIsNotMadeLater) {
  controller.emplace();
  // The first check is over, and the second one is far.
  std::this_thread::sleep_for(31s);
  const DiskPtr silent = makeDisk(USB);
  silent->setLastUpdateTime(clock.now() - 300s);
  controller->setMountedDisks({silent});
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(settle());
  if (std::chrono::steady_clock::now() - begin < 25s) {
    EXPECT_TRUE(isMounted("1234-ABCD"));
  }
  EXPECT_TRUE(runUntil([&] { return !isMounted("1234-ABCD"); }, 90s));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 20s);
}

TEST_F(ControllerTest, TheCheckIsMadeWhileEventsKeepComing) {
  process(USB);
  const int turns = 4 * int{Queue::TURN};
  int number = 0;
  // Something always waits, so that the tick which begins never ends. Nothing is mounted without
  // this thread, which looks after the queue in between.
  const auto flood = [&] {
    while (controller->waitingEvents() < static_cast<std::size_t>(turns)) {
      const std::string name = std::to_string(number++ % (2 * turns));
      const Texts disk{.event = "disk_status", .mac = "m", .ip = "i", .uuid = name, .label = name};
      receive(disk);
      receive(withEvent("disk_unmounted", disk));
    }
  };
  flood();
  clock.advance(121s);
  EXPECT_TRUE(runUntil(
      [&] {
        flood();
        return !isMounted(*USB.uuid);
      },
      60s));
}

TEST_F(ControllerTest, TheCheckGoesOnAfterTermination) {
  process(USB);
  gSystemWillTerminate = true;
  clock.advance(121s);
  controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
  EXPECT_THAT(mountedTexts(), IsEmpty());
}

// The end.

TEST_F(ControllerTest, UnmountAllWithoutDisksDoesNothing) {
  controller->unmountAll();
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, UnmountAllRemovesEveryShortcutAndLogsNothing) {
  process(USB);
  process(CARD);
  process(ELSEWHERE);
  ASSERT_EQ(shortcuts().size(), 3U);
  log.take();
  controller->unmountAll();
  EXPECT_THAT(shortcuts(), IsEmpty());
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
  controller->unmountAll();
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControllerTest, UnmountAllGoesThroughTheListInOrder) {
  process(USB);
  process(ELSEWHERE);
  fs::remove_all(onDesktop("USB Disk.app"));
  fs::remove_all(onDesktop("Elsewhere.app"));
  fs::create_directory(onDesktop("Elsewhere.app"));
  log.take();
  controller->unmountAll();
  EXPECT_THAT(log.lines(), ElementsAre(NOT_THERE, IS_A_FOLDER));
}

/// A clock at which the handler thread waits until it is let through.
class GuardedClock final : public platform::Clock {
 public:
  Date now() override {
    std::unique_lock lock(_mutex);
    _hasArrived = true;
    _changed.notify_all();
    _changed.wait(lock, [this] { return _isOpen; });
    return Date(1000h);
  }

  [[nodiscard]] bool hasArrived() {
    const std::lock_guard lock(_mutex);
    return _hasArrived;
  }

  void open() {
    const std::lock_guard lock(_mutex);
    _isOpen = true;
    _changed.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _hasArrived = false;
  bool _isOpen = false;
  const platform::Substitute<platform::Clock> _inForce{*this};
};

TEST_F(ControllerTest, UnmountAllTakesAwayTheShortcutOfADiskThatIsJustBeingMounted) {
  GuardedClock guard;
  const std::unique_ptr<void, std::function<void(void*)>> end(&guard, [&](void* /*guard*/) {
    guard.open();
    controller.reset();
  });
  receive(USB);
  // The shortcut is made, the record is not on the list yet.
  ASSERT_TRUE(runUntil([&] { return guard.hasArrived(); }));
  ASSERT_EQ(shortcuts().size(), 1U);
  ASSERT_THAT(mountedTexts(), IsEmpty());
  controller->unmountAll();
  EXPECT_THAT(shortcuts(), IsEmpty());
  guard.open();
  ASSERT_TRUE(settle());
  EXPECT_THAT(mountedTexts(), IsEmpty());
  EXPECT_THAT(shortcuts(), IsEmpty());
  EXPECT_EQ(log.count(NOT_THERE), 0U);
}

TEST_F(ControllerTest, ADiskMountedAfterUnmountAllIsMountedAsEver) {
  process(USB);
  controller->unmountAll();
  process(USB);
  EXPECT_THAT(mountedTexts(), ElementsAre(USB));
  EXPECT_EQ(shortcuts().size(), 1U);
}

TEST_F(ControllerTest, AControllerThatEndsMakesNoFurtherShortcut) {
  ASSERT_TRUE(holdHandler());
  receive(USB);
  controller.reset();
  EXPECT_THAT(shortcuts(), IsEmpty());
}

TEST_F(ControllerTest, AControllerThatEndsLeavesItsShortcuts) {
  process(USB);
  controller.reset();
  EXPECT_EQ(shortcuts().size(), 1U);
}

TEST_F(ControllerTest, ControllersMayEndAtAnyTime) {
  // Some end right after their start, some at their first ticks.
  std::vector<std::unique_ptr<OpenController>> controllers;
  for (int number = 0; number < 12; ++number) {
    controllers.push_back(std::make_unique<OpenController>());
    controllers.push_back(std::make_unique<OpenController>());
    controllers.pop_back();
  }
  int passed = 0;
  const auto timer = RunLoop::main().scheduleTimer(RunLoop::Seconds(0.1), [&] { ++passed; });
  while (!controllers.empty()) {
    const int before = passed;
    ASSERT_TRUE(runUntil([&] { return passed > before; }));
    controllers.pop_back();
  }
}

TEST_F(ControllerTest, UnmountAllAtAnyTimeLeavesNoShortcutWithoutRecord) {
  for (int round = 0; round < 6; ++round) {
    ASSERT_TRUE(holdHandler());
    for (int number = 0; number < 40; ++number) {
      const std::string name = "Disk " + std::to_string(number);
      receive({.event = "disk_status", .mac = "m", .ip = "i", .uuid = name, .label = name});
    }
    receive(withEvent("disk_unmounted", BLOCKER));
    // The list is emptied over and over while the handler thread fills it.
    int passes = 0;
    ASSERT_TRUE(runUntil([&] {
      if (++passes % 3 == 0) {
        controller->unmountAll();
      }
      return controller->waitingEvents() == 0;
    }));
    ASSERT_TRUE(settle());
    std::vector<std::string> files;
    for (const auto& [file, url] : shortcuts()) {
      files.push_back(file);
    }
    std::vector<std::string> records;
    for (const Texts& texts : mountedTexts()) {
      records.push_back(*texts.label + ".app");
    }
    std::ranges::sort(records);
    EXPECT_EQ(files, records);
    controller->unmountAll();
    EXPECT_THAT(shortcuts(), IsEmpty());
    EXPECT_THAT(mountedTexts(), IsEmpty());
  }
}

// Random events, held against the plain model.

class Chance {
 public:
  explicit Chance(unsigned seed) : _random(seed) {}

  std::size_t below(std::size_t bound) { return _random() % bound; }

  template <class Values>
  const auto& of(const Values& values) {
    return values[below(values.size())];
  }

  /// An announcement of one of a few disks of a few devices; complete, as intake demands.
  Texts announcement(std::size_t usableLabels) {
    static const std::vector<std::string> UUIDS{"", "A", "B", "C", "D", "E"};
    static const std::vector<std::string> MACS{"", "02:01", "02:02"};
    static const std::vector<std::string> ADDRESSES{"192.0.2.1", "192.0.2.2"};
    const auto sometimes = [this](const std::string& text) {
      return below(3) == 0 ? std::nullopt : Text(text);
    };
    const std::string label = labels()[below(usableLabels)].text;
    Texts full{.event = "disk_mounted",
               .mac = of(MACS),
               .ip = of(ADDRESSES),
               .uuid = of(UUIDS),
               .label = label};
    switch (below(8)) {
      case 0:
      case 1:
      case 2:
        return full;
      case 3:
      case 4:
        return withEvent("disk_status", full);
      case 5:
      case 6:
        return {.event = "disk_unmounted",
                .mac = full.mac,
                .ip = sometimes("192.0.2.1"),
                .uuid = full.uuid,
                .label = sometimes(label)};
      default:
        return {.event = "no_disk",
                .mac = full.mac,
                .ip = std::nullopt,
                .uuid = sometimes(*full.uuid),
                .label = sometimes(label)};
    }
  }

 private:
  std::mt19937 _random;
};

TEST_F(ControllerTest, RandomEventsHaveTheOutcomeOfThePlainModel) {
  using std::chrono::milliseconds;
  const std::vector<milliseconds> JUMPS{0ms,      1ms,      30s,      59500ms, 60s,
                                        119999ms, 120000ms, 120001ms, 121s,    -30s};
  constexpr unsigned SEEDS = 24;
  const bool areApplications = shortcutsAreApplications();
  for (unsigned seed = 1; seed <= SEEDS && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Chance chance(seed);
    const bool removesByScript = seed % 3 == 0;
    const ChosenVersion system(removesByScript ? LEOPARD : SNOW_LEOPARD);
    controller.emplace();
    PlainModel model(removesByScript, areApplications);
    for (int step = 0; step < 150 && !HasFailure(); ++step) {
      SCOPED_TRACE(testing::Message() << "step " << step);
      switch (chance.below(12)) {
        case 0:
          clock.advance(chance.of(JUMPS));
          break;
        case 1:
          controller->_checkUpdateTimesAndUnmountDisksIfNecessary();
          model.check(clock.now());
          break;
        case 2:
          if (chance.below(4) == 0) {
            controller->unmountAll();
            model.unmountAll();
          }
          break;
        default: {
          const Texts event = chance.announcement(labels().size());
          process(event);
          model.process(event, clock.now());
          break;
        }
      }
      expectLike(model);
    }
    controller->unmountAll();
    model.unmountAll();
    expectLike(model);
    EXPECT_THAT(model.mounted, IsEmpty());
    controller.reset();
  }
}

TEST_F(ControllerTest, RandomDatagramsHaveTheOutcomeOfThePlainModel) {
  constexpr unsigned SEED = 41;
  Chance chance(SEED);
  PlainModel model(false, shortcutsAreApplications());
  for (int batch = 0; batch < 8 && !HasFailure(); ++batch) {
    SCOPED_TRACE(testing::Message() << "seed " << SEED << ", batch " << batch);
    ASSERT_TRUE(holdHandler());
    // The blocker is under way, so it does not wait any more.
    model.lines.push_back(info(receivedLine(datagram(BLOCKER), BLOCKER)));
    for (int number = 0; number < 60; ++number) {
      // All but the label that no ASCII datagram can hold.
      Texts event = chance.announcement(labels().size());
      if (event.label == "L\xC3\xADn") {
        event.label = "One";
      }
      receive(event);
      model.arrives(event);
      ASSERT_EQ(controller->waitingEvents(), model.waiting.size());
    }
    const Texts release = withEvent("disk_unmounted", BLOCKER);
    receive(release);
    model.arrives(release);
    model.waiting.pop_back();
    ASSERT_TRUE(
        runUntil([&] { return controller->waitingEvents() == 0 && !isMounted("blocker"); }));
    model.tick(clock.now());
    expectLike(model);
    clock.advance(chance.below(2) == 0 ? 45s : 130s);
  }
}

}  // namespace
}  // namespace ravelin
