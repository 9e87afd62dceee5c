#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "disk/Disk.h"
#include "platform/ChildProcess.h"
#include "support/StandInPrograms.h"
#include "support/StandInVolumes.h"

namespace ravelin {
namespace {

class OpenDisk : public Disk {
 public:
  using Disk::_getVolumePath;
};

/// The volume side of a disk: where its share is mounted.
class DiskVolumeTest : public testing::Test {
 protected:
  DiskVolumeTest() {
    _disk.setIpAddress("192.0.2.10");
    _disk.setLabel("X");
  }

  void list(const std::string& mountPoint) const {
    _programs.list("//guest@192.0.2.10/X on " + mountPoint + " (smbfs)\n");
  }

  test::StandInPrograms _programs;
  test::StandInVolumes _volumes;
  OpenDisk _disk;
};

TEST_F(DiskVolumeTest, WithoutAReferenceTheMountTableIsAsked) {
  EXPECT_EQ(_disk._getVolumePath(), std::nullopt);
  list("/media/X");
  EXPECT_EQ(_disk._getVolumePath(), "/media/X");
}

TEST_F(DiskVolumeTest, TheVolumeWhoseNameIsInThePathIsFound) {
  _disk.setVolumeReference(3);
  _volumes.paths[3] = "/Volumes/X";
  _volumes.mounted = {{.name = "Macintosh HD", .rootPath = "/"},
                      {.name = "X", .rootPath = "/root/of/X"},
                      {.name = "Y", .rootPath = "/Volumes/Y"}};
  list("/elsewhere");
  EXPECT_EQ(_disk._getVolumePath(), "/root/of/X");
  _programs.takeCalls();
  EXPECT_TRUE(_disk.doesVolumeExist());
  EXPECT_TRUE(_programs.takeCalls().empty());
}

TEST_F(DiskVolumeTest, EveryReferenceBut0IsOfAVolume) {
  _volumes.mounted = {{.name = "X", .rootPath = "/root/of/X"}};
  list("/elsewhere");
  for (const auto reference : std::array<std::int16_t, 5>{-32768, -1, 0, 1, 32767}) {
    _volumes.paths = {{reference, "/Volumes/X"}};
    _disk.setVolumeReference(reference);
    EXPECT_EQ(_disk._getVolumePath(), reference == 0 ? "/elsewhere" : "/root/of/X") << reference;
  }
}

TEST_F(DiskVolumeTest, TheLastVolumeWhoseNameIsInThePathWins) {
  _disk.setVolumeReference(3);
  _volumes.paths[3] = "/Volumes/X-1";
  const platform::Volume one{.name = "X", .rootPath = "/Volumes/X"};
  const platform::Volume other{.name = "X-1", .rootPath = "/Volumes/X-1"};
  _volumes.mounted = {one, other};
  EXPECT_EQ(_disk._getVolumePath(), "/Volumes/X-1");
  _volumes.mounted = {other, one};
  EXPECT_EQ(_disk._getVolumePath(), "/Volumes/X");
}

TEST_F(DiskVolumeTest, ANamelessVolumeIsInNoPath) {
  _disk.setVolumeReference(3);
  _volumes.paths[3] = "/Volumes/X";
  _volumes.mounted = {{.name = "", .rootPath = "/"}};
  EXPECT_EQ(_disk._getVolumePath(), std::nullopt);
}

TEST_F(DiskVolumeTest, AReferenceWithoutAVolumeFallsBackToTheMountTable) {
  _disk.setVolumeReference(3);
  list("/media/X");
  EXPECT_EQ(_disk._getVolumePath(), "/media/X");
}

TEST_F(DiskVolumeTest, AVolumeThatIsNotEnumeratedFallsBackToTheMountTable) {
  _disk.setVolumeReference(3);
  _volumes.paths[3] = "/Volumes/X";
  _volumes.mounted = {{.name = "Y", .rootPath = "/Volumes/Y"}};
  EXPECT_EQ(_disk._getVolumePath(), std::nullopt);
  list("/media/X");
  EXPECT_EQ(_disk._getVolumePath(), "/media/X");
}

TEST_F(DiskVolumeTest, AFoundPathIsKeptForGood) {
  list("/media/X");
  EXPECT_EQ(_disk.getVolumePath(), "/media/X");
  list("/media/other");
  EXPECT_EQ(_disk.getVolumePath(), "/media/X");
  EXPECT_EQ(_disk._getVolumePath(), "/media/other");
  _programs.list("");
  EXPECT_EQ(_disk.getVolumePath(), "/media/X");
  EXPECT_FALSE(_disk.doesVolumeExist());
}

TEST_F(DiskVolumeTest, AMissingPathIsLookedUpAgain) {
  EXPECT_EQ(_disk.getVolumePath(), std::nullopt);
  list("/media/X");
  EXPECT_EQ(_disk.getVolumePath(), "/media/X");
}

TEST_F(DiskVolumeTest, AnEmptyPathIsKeptButIsNoVolume) {
  // The look-up finds an empty path when the mount point is the root and no blank follows it.
  _programs.list("//guest@192.0.2.10/X on /(smbfs)\n");
  EXPECT_EQ(_disk.getVolumePath(), "");
  EXPECT_FALSE(_disk.doesVolumeExist());
  list("/media/X");
  EXPECT_EQ(_disk.getVolumePath(), "");
  EXPECT_TRUE(_disk.doesVolumeExist());
}

TEST_F(DiskVolumeTest, ALookUpThatCannotBeStartedRaises) {
  _programs.remove("mount");
  EXPECT_THROW((void)_disk.getVolumePath(), platform::LaunchException);
  EXPECT_THROW((void)_disk.doesVolumeExist(), platform::LaunchException);
}

}  // namespace
}  // namespace ravelin
