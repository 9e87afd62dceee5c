#include "disk/DiskManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "disk/AliasData.h"
#include "platform/ChildProcess.h"
#include "platform/scripts/ScriptRunner.h"
#include "support/RecordingLog.h"
#include "support/StandInPrograms.h"
#include "support/StandInVolumes.h"
#include "support/TemporaryHome.h"
#include "support/Waiting.h"

namespace ravelin {
namespace {

namespace fs = std::filesystem;
using platform::LaunchException;
using test::error;
using test::info;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const LISTED =
    "/dev/sda1 on / (ext4, rw)\n"
    "//guest@192.0.2.10/USB%20Disk on /media/USB Disk (smbfs, nodev, nosuid)\n";

/// A disk manager whose own operations can be called.
class OpenDiskManager : public DiskManager {
 public:
  using DiskManager::_coreServicesMountDisk;
  using DiskManager::_coreServicesUnmountDisk;
  using DiskManager::_getMountPathForDiskIfAlreadyMounted;
  using DiskManager::_makeAliasWithData;
  using DiskManager::_mountOperationEncodeURL;
  using DiskManager::_shellMountDisk;
  using DiskManager::_shellUnmountAlreadyMountedVolume;
  using DiskManager::_shellUnmountDisk;
  using DiskManager::_shellUnMountDiskAtPath;
};

/// The disk "USB Disk" of 192.0.2.10, stand-ins for everything of the system's, and a home.
class DiskManagerTest : public testing::Test {
 protected:
  DiskManagerTest() {
    _disk.setIpAddress("192.0.2.10");
    _disk.setLabel("USB Disk");
  }

  [[nodiscard]] std::string mountDirectory() const { return _home.userSupport() + "/USB Disk"; }

  [[nodiscard]] std::string mountCall() const {
    return "mount [-t] [smbfs] [//guest:@192.0.2.10/USB%20Disk] [" + mountDirectory() + "]";
  }

  /// What the look-up returns for a listing.
  [[nodiscard]] Text lookUp(const std::string& listing) const {
    _programs.list(listing);
    return DiskManager::getMountedDiskMountDirectory(_disk);
  }

  /// The same where the case of these texts means nothing, wherever they are in the listing.
  [[nodiscard]] Text lookUpWithoutCase(const std::vector<std::string>& sources,
                                       const std::string& listing) {
    std::vector<platform::MountListing::Stretch> caseless;
    std::size_t end = 0;
    for (const std::string& source : sources) {
      const std::size_t begin = listing.find(source, end);
      EXPECT_NE(begin, std::string::npos) << source;
      end = begin + source.size();
      caseless.push_back({.begin = begin, .size = source.size()});
    }
    _programs.setCaseless(std::move(caseless));
    return lookUp(listing);
  }

  const test::TemporaryHome _home;
  test::RecordingLog _log;
  test::StandInPrograms _programs;
  test::StandInVolumes _volumes;
  Disk _disk;
  OpenDiskManager _manager;
};

// Escaping

TEST_F(DiskManagerTest, ShareNamesAreEscapedForUrls) {
  EXPECT_EQ(OpenDiskManager::_mountOperationEncodeURL("USB Disk"), "USB%20Disk");
  EXPECT_EQ(OpenDiskManager::_mountOperationEncodeURL("50%\n"), "50%25%0A");
  EXPECT_EQ(OpenDiskManager::_mountOperationEncodeURL(""), "");
  EXPECT_EQ(OpenDiskManager::_mountOperationEncodeURL("Gr\xc3\xb6\xc3\x9f"
                                                      "e"),
            std::nullopt);
  EXPECT_EQ(OpenDiskManager::_mountOperationEncodeURL(std::nullopt), std::nullopt);
}

// The look-up in the mount table

TEST_F(DiskManagerTest, TheLookUpFindsTheMountPointOfTheShare) {
  EXPECT_EQ(lookUp(LISTED), "/media/USB Disk");
  EXPECT_EQ(OpenDiskManager::_getMountPathForDiskIfAlreadyMounted(_disk), "/media/USB Disk");
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount", "mount"));
  EXPECT_THAT(_log.lines(), IsEmpty());
}

TEST_F(DiskManagerTest, TheLookUpFindsNothingInListingsWithoutTheShare) {
  EXPECT_EQ(lookUp(""), std::nullopt);
  EXPECT_EQ(lookUp("/dev/sda1 on / (ext4, rw)\n"), std::nullopt);
  EXPECT_EQ(lookUp("//guest@192.0.2.11/USB%20Disk on /media/x (smbfs)\n"), std::nullopt);
  EXPECT_EQ(lookUp("//guest@192.0.2.10/usb%20disk on /media/x (smbfs)\n"), std::nullopt);
  EXPECT_EQ(lookUp("//guest@192.0.2.10/USB Disk on /media/x (smbfs)\n"), std::nullopt);
}

TEST_F(DiskManagerTest, TheLookUpIsLoose) {
  _disk.setIpAddress("10.0.0.1");
  _disk.setLabel("USB");
  EXPECT_EQ(lookUp("//guest@110.0.0.1/USB2 on /media/USB2 (smbfs)\n"), "/media/USB2");
}

TEST_F(DiskManagerTest, TheLookUpTakesTheFirstOccurrence) {
  EXPECT_EQ(lookUp("//guest@192.0.2.10/USB%20Disk on /media/one (smbfs)\n"
                   "//guest@192.0.2.10/USB%20Disk on /media/two (smbfs)\n"),
            "/media/one");
}

TEST_F(DiskManagerTest, AShareWhoseCaseIsLostIsFoundInEveryCase) {
  const std::string lost = "//guest@192.0.2.10/usb%20disk";
  const std::string listing = lost + " on /media/x (smbfs)\n";
  EXPECT_EQ(lookUp(listing), std::nullopt);
  EXPECT_EQ(lookUpWithoutCase({lost}, listing), "/media/x");
  _disk.setLabel("usb DISK");
  EXPECT_EQ(lookUp(listing), "/media/x");
  _disk.setLabel("usb disc");
  EXPECT_EQ(lookUp(listing), std::nullopt);
}

TEST_F(DiskManagerTest, ALostCaseMakesTheLookUpNoLessLoose) {
  const std::string longer = "//guest@1192.0.2.10/usb%20disk%202";
  EXPECT_EQ(lookUpWithoutCase({longer}, longer + " on /media/x (smbfs)\n"), "/media/x");
}

TEST_F(DiskManagerTest, OnlyWhereTheCaseIsLostItMeansNothing) {
  const std::string lost = "//guest@192.0.2.10/usb%20disk";
  const std::string other = "//guest@192.0.2.11/x";
  // Before the stretch, behind it, and partly in it.
  EXPECT_EQ(lookUpWithoutCase({other}, lost + " on /a (smbfs)\n" + other + " on /b (smbfs)\n"),
            std::nullopt);
  EXPECT_EQ(lookUpWithoutCase({other}, other + " on /b (smbfs)\n" + lost + " on /a (smbfs)\n"),
            std::nullopt);
  EXPECT_EQ(lookUpWithoutCase({other}, other + " on /b/192.0.2.10/usb%20disk (smbfs)\n" + lost +
                                           " on /a (smbfs)\n"),
            std::nullopt);
  EXPECT_EQ(lookUpWithoutCase({"//guest@192.0.2.10/usb%20dis"}, lost + " on /a (smbfs)\n"),
            std::nullopt);
  EXPECT_EQ(lookUpWithoutCase({"92.0.2.10/usb%20disk"}, lost + " on /a (smbfs)\n"), std::nullopt);
}

TEST_F(DiskManagerTest, TheFirstOccurrenceIsTakenWhetherItsCaseIsLostOrRight) {
  const std::string lost = "//guest@192.0.2.10/usb%20disk";
  const std::string right = "//guest@192.0.2.10/USB%20Disk";
  const std::string lines = lost + " on /media/one (smbfs)\n" + right + " on /media/two (smbfs)\n";
  EXPECT_EQ(lookUpWithoutCase({}, lines), "/media/two");
  EXPECT_EQ(lookUpWithoutCase({lost}, lines), "/media/one");
  EXPECT_EQ(lookUpWithoutCase({lost, right}, lines), "/media/one");
  EXPECT_EQ(lookUpWithoutCase(
                {lost}, right + " on /media/one (smbfs)\n" + lost + " on /media/two (smbfs)\n"),
            "/media/one");
  // One in a mount point comes first, too; what stands behind it is spelt as it is sought.
  EXPECT_EQ(lookUpWithoutCase({lost}, "/dev/sda1 on /media/192.0.2.10/USB%20Disk/x (ext4)\n" +
                                          lost + " on /media/two (smbfs)\n"),
            "/x");
}

TEST_F(DiskManagerTest, AServerThatBeginsWithALetterIsFoundInEveryCase) {
  _disk.setIpAddress("nas");
  _disk.setLabel("usb");
  EXPECT_EQ(lookUpWithoutCase({"//guest@NAS/USB"}, "//guest@NAS/USB on /media/x (smbfs)\n"),
            "/media/x");
  EXPECT_EQ(lookUpWithoutCase({"//guest@NAN/USB"}, "//guest@NAN/USB on /media/x (smbfs)\n"),
            std::nullopt);
}

TEST_F(DiskManagerTest, MalformedListingsGiveNull) {
  const std::string share = "//guest@192.0.2.10/USB%20Disk";
  EXPECT_EQ(lookUp(share), std::nullopt);
  EXPECT_EQ(lookUp(share + " on nowhere (smbfs)\n"), std::nullopt);
  EXPECT_EQ(lookUp(share + " on /media/x smbfs\n"), std::nullopt);
  EXPECT_EQ(lookUp(share + " (smbfs) on\n"), std::nullopt);
  EXPECT_EQ(lookUp(share + "/"), std::nullopt);
}

TEST_F(DiskManagerTest, WhatPrecedesTheParenthesisIsDroppedWhateverItIs) {
  const std::string share = "//guest@192.0.2.10/USB%20Disk";
  EXPECT_EQ(lookUp(share + " on /media/x(smbfs)\n"), "/media/");
  EXPECT_EQ(lookUp(share + " on /media/a (b) (smbfs)\n"), "/media/a");
  EXPECT_EQ(lookUp(share + " on /media/x\n//other on /media/y (smbfs)\n"),
            "/media/x\n//other on /media/y");
  EXPECT_EQ(lookUp(share + "2 on /(smbfs)\n"), "");
  EXPECT_EQ(lookUp(share + " on /media/\xc3\xbc(smbfs)\n"), "/media/");
}

TEST_F(DiskManagerTest, AListingThatIsNotUtf8GivesNull) {
  EXPECT_EQ(lookUp(std::string(LISTED) + "\xff"), std::nullopt);
}

TEST_F(DiskManagerTest, AMountPointInUtf8IsFound) {
  EXPECT_EQ(lookUp("//guest@192.0.2.10/USB%20Disk on /media/B\xc3\xbc"
                   "cher (smbfs)\n"),
            "/media/B\xc3\xbc"
            "cher");
}

TEST_F(DiskManagerTest, TheExitStatusOfTheListingDoesNotMatter) {
  _programs.tell("mount", "echo '//guest@192.0.2.10/USB%20Disk on /media/x (smbfs)' >&2; exit 1");
  EXPECT_EQ(DiskManager::getMountedDiskMountDirectory(_disk), "/media/x");
}

TEST_F(DiskManagerTest, AShareIsFoundBehindAMegabyteOfOthers) {
  std::string listing;
  while (listing.size() < 1'000'000) {
    listing += "/dev/sda" + std::to_string(listing.size()) + " on /mnt (ext4, rw)\n";
  }
  EXPECT_EQ(lookUp(listing + LISTED), "/media/USB Disk");
}

TEST_F(DiskManagerTest, ALookUpThatCannotBeStartedRaises) {
  _programs.remove("mount");
  EXPECT_THROW((void)DiskManager::getMountedDiskMountDirectory(_disk), LaunchException);
  EXPECT_THROW(_manager.mountDisk(_disk), LaunchException);
  EXPECT_THROW((void)_manager.isDiskMountable(_disk), LaunchException);
}

TEST_F(DiskManagerTest, AbsentTextsAreSoughtAsNull) {
  Disk nothing;
  _programs.list("//(null)/(null) on /media/x (smbfs)\n");
  EXPECT_EQ(DiskManager::getMountedDiskMountDirectory(nothing), "/media/x");
  nothing.setIpAddress("192.0.2.10");
  nothing.setLabel("\xc3\xbc");
  EXPECT_EQ(DiskManager::getMountedDiskMountDirectory(nothing), std::nullopt);
  _programs.list("//192.0.2.10/(null) on /media/y (smbfs)\n");
  EXPECT_EQ(DiskManager::getMountedDiskMountDirectory(nothing), "/media/y");
}

// Mounting by the system

TEST_F(DiskManagerTest, AShareThatIsNotListedIsMountedAsGuest) {
  _volumes.nextMount = {.status = 0, .comment = "comment on 0", .reference = 7};
  EXPECT_TRUE(_manager.mountDisk(_disk));
  EXPECT_THAT(_volumes.takeCalls(), ElementsAre("mount [smb://192.0.2.10/USB%20Disk] [guest] []"));
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount"));
  EXPECT_EQ(_disk.volumeReference(), 7);
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("FSMountServerVolumeSync (USB Disk) result:0=comment on 0")));
}

TEST_F(DiskManagerTest, AFailedMountIsLoggedAndForgetsTheVolume) {
  _disk.setVolumeReference(5);
  _volumes.nextMount = {.status = -5016, .comment = "comment on -5016", .reference = 0};
  EXPECT_FALSE(_manager.mountDisk(_disk));
  EXPECT_EQ(_disk.volumeReference(), 0);
  EXPECT_THAT(
      _log.lines(),
      ElementsAre(info("FSMountServerVolumeSync (USB Disk) result:-5016=comment on -5016")));
}

TEST_F(DiskManagerTest, AMountedShareIsNotMountedAgain) {
  _programs.list(LISTED);
  _disk.setVolumeReference(5);
  EXPECT_TRUE(_manager.mountDisk(_disk));
  EXPECT_EQ(_disk.volumeReference(), 5);
  EXPECT_TRUE(_manager.isDiskMountable(_disk));
  EXPECT_THAT(_volumes.takeCalls(), IsEmpty());
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount", "mount"));
  EXPECT_THAT(_log.lines(), IsEmpty());
}

TEST_F(DiskManagerTest, AbsentTextsAreMountedAsNull) {
  Disk nothing;
  _manager._coreServicesMountDisk(nothing);
  nothing.setIpAddress("192.0.2.10");
  nothing.setLabel("\xc3\xbc");
  _manager._coreServicesMountDisk(nothing);
  EXPECT_THAT(_volumes.takeCalls(), ElementsAre("mount [smb://(null)/(null)] [guest] []",
                                                "mount [smb://192.0.2.10/(null)] [guest] []"));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("FSMountServerVolumeSync ((null)) result:0=comment on 0"),
                          info("FSMountServerVolumeSync (\xc3\xbc) result:0=comment on 0")));
}

// Mounting by command

TEST_F(DiskManagerTest, ATrialMountIsUndone) {
  EXPECT_TRUE(_manager.isDiskMountable(_disk));
  EXPECT_THAT(_programs.takeCalls(),
              ElementsAre("mount", "mkdir [" + mountDirectory() + "]", mountCall(),
                          "umount [" + mountDirectory() + "]", "rmdir [" + mountDirectory() + "]"));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("MountTask (USB Disk Try:1) successful."),
                          info("_shellUnMountDiskAtPath (" + mountDirectory() + ") successful")));
  EXPECT_THAT(_volumes.takeCalls(), IsEmpty());
  EXPECT_EQ(_disk.volumeReference(), 0);
}

TEST_F(DiskManagerTest, ATrialMountCountsEvenIfItCannotBeUndone) {
  _programs.tell("umount", "exit 1");
  EXPECT_TRUE(_manager.isDiskMountable(_disk));
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount", "mkdir [" + mountDirectory() + "]",
                                                 mountCall(), "umount [" + mountDirectory() + "]"));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("MountTask (USB Disk Try:1) successful."),
                          info("_shellUnMountDiskAtPath (" + mountDirectory() + ") failure")));
}

TEST_F(DiskManagerTest, Status64IsTriedThreeTimesWithTheStaleMountCleared) {
  _programs.list(LISTED, "echo busy; exit 64");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_THAT(_programs.takeCalls(),
              ElementsAre("mkdir [" + mountDirectory() + "]",                //
                          mountCall(), "mount", "umount [/media/USB Disk]",  //
                          mountCall(), "mount", "umount [/media/USB Disk]",  //
                          mountCall(), "mount", "umount [/media/USB Disk]"));
  const auto unmounted = info("_shellUnMountDiskAtPath (/media/USB Disk) successful");
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("MountTask (USB Disk Try:1) Error: busy\n."), unmounted,
                          info("MountTask (USB Disk Try:2) Error: busy\n."), unmounted,
                          info("MountTask (USB Disk Try:3) Error: busy\n."), unmounted));
}

TEST_F(DiskManagerTest, Status64OfAShareThatIsNotListedShowsNull) {
  _programs.list("", "exit 64");
  EXPECT_FALSE(_manager.isDiskMountable(_disk));
  EXPECT_EQ(_log.count(info("_shellUnmountAlreadyMountedVolume: ((null)) appears to be unmounted "
                            "already.")),
            3U);
  EXPECT_EQ(_log.lines().size(), 6U);
  EXPECT_THAT(_programs.takeCalls(),
              testing::Not(testing::Contains(testing::HasSubstr("umount ["))));
}

TEST_F(DiskManagerTest, AnExistingFileClearsTheStaleMountWhateverTheStatus) {
  _programs.list(LISTED, "echo 'mount_smbfs: File exists'; exit 1");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_EQ(_log.count(info("MountTask (USB Disk Try:2) Error: mount_smbfs: File exists\n.")), 1U);
  EXPECT_EQ(_log.count(info("_shellUnMountDiskAtPath (/media/USB Disk) successful")), 3U);
}

TEST_F(DiskManagerTest, AStaleMountThatCannotBeClearedDoesNotEndTheTries) {
  _programs.list(LISTED, "exit 64");
  _programs.tell("umount", "exit 1");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_EQ(_log.count(info("_shellUnMountDiskAtPath (/media/USB Disk) failure")), 3U);
}

TEST_F(DiskManagerTest, OtherStatusesAreTriedThreeTimes) {
  _programs.list(LISTED, "echo out; echo err >&2; exit 68");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mkdir [" + mountDirectory() + "]", mountCall(),
                                                 mountCall(), mountCall()));
  EXPECT_THAT(
      _log.lines(),
      ElementsAre(info("MountTask (USB Disk Try:1 termination Status 68) result:out\nerr\n"),
                  info("MountTask (USB Disk Try:2 termination Status 68) result:out\nerr\n"),
                  info("MountTask (USB Disk Try:3 termination Status 68) result:out\nerr\n")));
}

TEST_F(DiskManagerTest, ALaterTryMaySucceed) {
  const std::string marker = _home.path() + "/tried";
  _programs.list("", "[ -e '" + marker + "' ] && exit 0\n: >'" + marker + "'; exit 64");
  EXPECT_TRUE(_manager._shellMountDisk(_disk));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("MountTask (USB Disk Try:1) Error: ."),
                          info("_shellUnmountAlreadyMountedVolume: ((null)) appears to be "
                               "unmounted already."),
                          info("MountTask (USB Disk Try:2) successful.")));
}

TEST_F(DiskManagerTest, AMountThatAnswersWithAMegabyteIsAwaited) {
  _programs.list("", "head -c 1000000 /dev/zero | tr '\\0' x; exit 3");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_EQ(_log.count(info("MountTask (USB Disk Try:3 termination Status 3) result:" +
                            std::string(1'000'000, 'x'))),
            1U);
}

TEST_F(DiskManagerTest, UndecodableOutputShowsAsNull) {
  _programs.list("", "printf '\\377File exists'; exit 3");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_EQ(_log.count(info("MountTask (USB Disk Try:1 termination Status 3) result:(null)")), 1U);
  _programs.list("", "printf '\\377'; exit 64");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_EQ(_log.count(info("MountTask (USB Disk Try:1) Error: (null).")), 1U);
}

TEST_F(DiskManagerTest, ASignalCountsAsTheStatusOfItsNumber) {
  _programs.list("", "kill -9 $$");
  EXPECT_FALSE(_manager._shellMountDisk(_disk));
  EXPECT_EQ(_log.count(info("MountTask (USB Disk Try:1 termination Status 9) result:")), 1U);
}

TEST_F(DiskManagerTest, AFolderThatCannotBeMadeDoesNotMatter) {
  _programs.tell("mkdir", "echo File exists; exit 1");
  EXPECT_TRUE(_manager._shellMountDisk(_disk));
  EXPECT_THAT(_log.lines(), ElementsAre(info("MountTask (USB Disk Try:1) successful.")));
}

TEST_F(DiskManagerTest, AbsentTextsAreMountedByCommandAsNull) {
  const Disk nothing;
  EXPECT_TRUE(_manager._shellMountDisk(nothing));
  const std::string directory = _home.userSupport() + "/(null)";
  EXPECT_THAT(_programs.takeCalls(),
              ElementsAre("mkdir [" + directory + "]",
                          "mount [-t] [smbfs] [//guest:@(null)/(null)] [" + directory + "]"));
  EXPECT_THAT(_log.lines(), ElementsAre(info("MountTask ((null) Try:1) successful.")));
}

TEST_F(DiskManagerTest, EveryProgramThatIsMissingRaises) {
  _programs.remove("umount");
  EXPECT_THROW(_manager._shellUnMountDiskAtPath("/media/x"), LaunchException);
  EXPECT_THROW(_manager._shellUnmountDisk(_disk), LaunchException);
  _programs.tell("umount", "");
  _programs.remove("rmdir");
  EXPECT_THROW(_manager._shellUnmountDisk(_disk), LaunchException);
  _programs.remove("mkdir");
  EXPECT_THROW(_manager._shellMountDisk(_disk), LaunchException);
  _programs.tell("mkdir", "");
  _programs.remove("mount");
  EXPECT_THROW(_manager._shellMountDisk(_disk), LaunchException);
}

// Unmounting

TEST_F(DiskManagerTest, AVolumeIsUnmountedByItsReference) {
  _disk.setVolumeReference(-3);
  EXPECT_TRUE(_manager.unmountDisk(_disk));
  EXPECT_THAT(_volumes.takeCalls(), ElementsAre("unmount -3"));
  EXPECT_THAT(_programs.takeCalls(), IsEmpty());
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("FSUnmountVolumeSync (USB Disk) result:0=comment on 0")));
}

TEST_F(DiskManagerTest, AShareThatIsNotMountedAtAllCountsAsUnmounted) {
  _volumes.nextUnmount = -35;
  EXPECT_TRUE(_manager.unmountDisk(_disk));
  EXPECT_THAT(_volumes.takeCalls(), ElementsAre("unmount 0"));
  // The listing is all that is run.
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount"));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("FSUnmountVolumeSync (USB Disk) result:-35=comment on -35")));
}

TEST_F(DiskManagerTest, AListedShareIsUnmountedByCommand) {
  _volumes.nextUnmount = -35;
  _programs.list(LISTED);
  EXPECT_TRUE(_manager.unmountDisk(_disk));
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount", "mount", "umount [/media/USB Disk]"));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("FSUnmountVolumeSync (USB Disk) result:-35=comment on -35"),
                          info("_shellUnMountDiskAtPath (/media/USB Disk) successful")));
}

TEST_F(DiskManagerTest, AListedShareThatCannotBeUnmountedByCommandStays) {
  _volumes.nextUnmount = -47;
  _programs.list(LISTED);
  _programs.tell("umount", "exit 16");
  EXPECT_FALSE(_manager.unmountDisk(_disk));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("FSUnmountVolumeSync (USB Disk) result:-47=comment on -47"),
                          info("_shellUnMountDiskAtPath (/media/USB Disk) failure")));
}

TEST_F(DiskManagerTest, AVolumeThatStaysAndIsNotListedIsAFailure) {
  _volumes.nextUnmount = -47;
  _volumes.paths[9] = "/media/USB Disk";
  _volumes.mounted = {{.name = "USB Disk", .rootPath = "/media/USB Disk"}};
  _disk.setVolumeReference(9);
  EXPECT_FALSE(_manager.unmountDisk(_disk));
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("mount"));
  EXPECT_EQ(_log.lines().size(), 1U);
}

TEST_F(DiskManagerTest, AVolumeThatHasGoneMeanwhileCountsAsUnmounted) {
  _volumes.nextUnmount = -47;
  _disk.setVolumeReference(9);
  EXPECT_TRUE(_manager._coreServicesUnmountDisk(_disk));
}

TEST_F(DiskManagerTest, AShareThatIsNotListedNeedsNoClearing) {
  EXPECT_TRUE(_manager._shellUnmountAlreadyMountedVolume(_disk));
  EXPECT_THAT(_log.lines(), ElementsAre(info("_shellUnmountAlreadyMountedVolume: ((null)) appears "
                                             "to be unmounted already.")));
}

TEST_F(DiskManagerTest, AFolderThatCannotBeUnmountedStays) {
  _programs.tell("umount", "exit 1");
  EXPECT_FALSE(_manager._shellUnmountDisk(_disk));
  EXPECT_THAT(_programs.takeCalls(), ElementsAre("umount [" + mountDirectory() + "]"));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("_shellUnMountDiskAtPath (" + mountDirectory() + ") failure")));
}

TEST_F(DiskManagerTest, AFolderThatCannotBeRemovedDoesNotMatter) {
  _programs.tell("rmdir", "exit 1");
  EXPECT_TRUE(_manager._shellUnmountDisk(_disk));
  EXPECT_THAT(_log.lines(),
              ElementsAre(info("_shellUnMountDiskAtPath (" + mountDirectory() + ") successful")));
}

// Aliases

class DiskManagerAliasTest : public DiskManagerTest {
 protected:
  DiskManagerAliasTest() { fs::create_directories(_volume); }

  const std::string _volume = _home.path() + "/media/USB Disk";
  const std::string _item = _home.desktop() + "/USB Disk";
};

TEST_F(DiskManagerAliasTest, AnAliasOfTheVolumeAppearsOnTheDesktop) {
  std::ofstream(_volume + "/file") << "content";
  EXPECT_TRUE(_manager.createDesktopAliasForPath(_volume));
  EXPECT_TRUE(fs::is_symlink(_item));
  EXPECT_TRUE(fs::exists(_item + "/file"));
  EXPECT_THAT(_log.lines(), ElementsAre(info("Alias has been created at desktop.")));
}

TEST_F(DiskManagerAliasTest, ATrailingSlashDoesNotMatter) {
  EXPECT_TRUE(_manager.createDesktopAliasForPath(_volume + "//"));
  EXPECT_TRUE(fs::is_symlink(_item));
}

TEST_F(DiskManagerAliasTest, AnItemThatIsThereStaysAndNoScriptRuns) {
  std::ofstream(_item) << "mine";
  EXPECT_TRUE(_manager.createDesktopAliasForPath(_volume));
  EXPECT_TRUE(fs::is_regular_file(_item));
  EXPECT_THAT(_log.lines(), IsEmpty());
}

TEST_F(DiskManagerAliasTest, AnAliasThatLeadsToNothingAnyMoreIsAnItem) {
  fs::create_symlink(_home.path() + "/gone", _item);
  EXPECT_TRUE(_manager.createDesktopAliasForPath(_volume));
  EXPECT_EQ(fs::read_symlink(_item), _home.path() + "/gone");
  EXPECT_THAT(_log.lines(), IsEmpty());
}

TEST_F(DiskManagerAliasTest, AVolumeThatIsNotThereGetsNoAlias) {
  EXPECT_FALSE(_manager.createDesktopAliasForPath(_home.path() + "/nothing"));
  EXPECT_THAT(_log.lines(), ElementsAre(error("Could not create the alias file.")));
  EXPECT_TRUE(fs::is_empty(_home.desktop()));
}

TEST_F(DiskManagerAliasTest, ADoubleQuoteMakesItFail) {
  const std::string odd = _home.path() + "/media/a\"b";
  fs::create_directories(odd);
  EXPECT_FALSE(_manager.createDesktopAliasForPath(odd));
  fs::create_directories(odd + "/c");
  EXPECT_FALSE(_manager.createDesktopAliasForPath(odd + "/c"));
  EXPECT_THAT(_log.lines(), ElementsAre(error("Could not create the alias file."),
                                        error("Could not create the alias file.")));
  EXPECT_TRUE(fs::is_empty(_home.desktop()));
}

TEST_F(DiskManagerAliasTest, TheRootHasNoNameToMakeAnAliasUnder) {
  EXPECT_TRUE(_manager.createDesktopAliasForPath("/"));
  EXPECT_TRUE(_manager.createDesktopAliasForPath(""));
  EXPECT_TRUE(_manager.createDesktopAliasForPath("/media/.."));
  EXPECT_THAT(_log.lines(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(_home.desktop()));
}

/// A script runner that returns what the test chooses, and can make a file.
class StandInScriptRunner final : public platform::ScriptRunner {
 public:
  explicit StandInScriptRunner(bool result) : _result(result) {}

  std::string makes;  ///< the path of a file that running a script makes
  std::vector<std::string> sources;
  bool alwaysOnMainThread = true;

 private:
  bool _execute(const platform::Script& script) override {
    sources.push_back(std::visit([](const auto& kind) { return kind.source(); }, script));
    alwaysOnMainThread = alwaysOnMainThread && platform::RunLoop::main().isCurrent();
    if (!makes.empty()) {
      std::ofstream(makes) << "made";
    }
    return _result;
  }

  const bool _result;
  const platform::Substitute<platform::ScriptRunner> _inForce{*this};
};

TEST_F(DiskManagerAliasTest, OnlyTheItemAtTheExpectedPathCounts) {
  StandInScriptRunner runner(true);
  runner.makes = _home.desktop() + "/USB Disk alias";
  EXPECT_FALSE(_manager.createDesktopAliasForPath(_volume));
  EXPECT_THAT(_log.take(), ElementsAre(info("Alias has been created at desktop.")));
  ASSERT_EQ(runner.sources.size(), 1U);
  EXPECT_EQ(runner.sources[0],
            (platform::AliasScript{.aliasName = "USB Disk", .volumePath = _volume}.source()));
}

TEST_F(DiskManagerAliasTest, TheReportOfTheScriptDoesNotDecide) {
  StandInScriptRunner runner(false);
  runner.makes = _item;
  EXPECT_TRUE(_manager.createDesktopAliasForPath(_volume));
  EXPECT_THAT(_log.take(), ElementsAre(error("Could not create the alias file.")));
}

TEST_F(DiskManagerAliasTest, TheScriptsAnswerIsPassedOnToTheMainThread) {
  AliasData data;
  data.setAliasName("x");
  EXPECT_TRUE([&] {
    const StandInScriptRunner runner(true);
    return _manager._makeAliasWithData(data);
  }());
  const StandInScriptRunner runner(false);
  EXPECT_FALSE(_manager._makeAliasWithData(data));
}

TEST_F(DiskManagerAliasTest, AnotherThreadHandsTheScriptToTheMainThreadAndWaits) {
  StandInScriptRunner runner(true);
  runner.makes = _item;
  std::atomic<int> answer = -1;
  std::jthread other([&] { answer = _manager.createDesktopAliasForPath(_volume) ? 1 : 0; });
  EXPECT_TRUE(test::runUntil([&] { return answer != -1; }));
  EXPECT_EQ(answer, 1);
  EXPECT_EQ(runner.sources.size(), 1U);
  EXPECT_TRUE(runner.alwaysOnMainThread);
}

}  // namespace
}  // namespace ravelin
