// Both ways of mounting volumes: by the file system services, and by NetFS and the kernel.
#include "platform/Volumes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "fakes/FakeSystem.h"
#include "fakes/FakeVolumes.h"
#include "platform/macos/FileSystemVolumes.h"
#include "platform/macos/NetworkVolumes.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

using fakes::FakeVolumes;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* SHARE = "smb://192.0.2.10/USB%20Disk";

class MacVolumesTest : public testing::Test {
 protected:
  [[nodiscard]] std::string pointOf(const std::string& name) const {
    return folder.path() + "/" + name;
  }

  static std::vector<std::string> pathsOf(Volumes& volumes) {
    std::vector<std::string> paths;
    for (const Volume& volume : volumes.volumes()) {
      paths.push_back(volume.name + " at " + volume.rootPath);
    }
    return paths;
  }

  /// What holds for both.
  void expectToMountFindAndUnmount(Volumes& volumes) const {
    const auto first = volumes.mountServerVolume(SHARE, "guest", "");
    const auto second = volumes.mountServerVolume("smb://192.0.2.11/CARD", "guest", "");
    EXPECT_EQ(first.status, 0) << first.comment;
    EXPECT_EQ(second.status, 0) << second.comment;
    EXPECT_NE(first.reference, 0);
    EXPECT_NE(second.reference, 0);
    EXPECT_NE(first.reference, second.reference);
    EXPECT_EQ(volumes.pathOfVolume(first.reference), pointOf("USB Disk"));
    EXPECT_EQ(volumes.pathOfVolume(second.reference), pointOf("CARD"));
    EXPECT_EQ(volumes.referenceOfVolume(pointOf("CARD")), second.reference);
    EXPECT_EQ(volumes.referenceOfVolume(pointOf("other")), 0);
    EXPECT_THAT(pathsOf(volumes),
                ElementsAre("USB Disk at " + pointOf("USB Disk"), "CARD at " + pointOf("CARD")));
    EXPECT_THAT(volumes.mountedShares(),
                ElementsAre(MountedShare{"192.0.2.10", "USB Disk", pointOf("USB Disk")},
                            MountedShare{"192.0.2.11", "CARD", pointOf("CARD")}));
    EXPECT_EQ(volumes.unmountVolume(first.reference).status, 0);
    EXPECT_EQ(volumes.pathOfVolume(first.reference), std::nullopt);
    EXPECT_EQ(volumes.referenceOfVolume(pointOf("USB Disk")), 0);
    EXPECT_NE(volumes.unmountVolume(first.reference).status, 0);
    EXPECT_THAT(pathsOf(volumes), ElementsAre("CARD at " + pointOf("CARD")));
  }

  test::TemporaryDirectory folder;
  FakeVolumes fake{folder.path()};
  fakes::FakeSystem system;
  FileSystemVolumes services;
  NetworkVolumes network;
};

TEST_F(MacVolumesTest, TheServicesMountFindAndUnmount) {
  ASSERT_TRUE(FileSystemVolumes::areHere());
  expectToMountFindAndUnmount(services);
  EXPECT_EQ(fake.mounts().front(), (FakeVolumes::Mount{.url = SHARE,
                                                       .folder = "",
                                                       .user = "guest",
                                                       .password = "",
                                                       .asGuest = false,
                                                       .mayAsk = true,
                                                       .byNetFs = false}));
}

TEST_F(MacVolumesTest, TheServicesTellEachStatusWithItsComment) {
  const auto expect = [](const VolumeOutcome& outcome, VolumeStatus status, const char* comment) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.comment, comment);
  };
  const auto mount = [this](const std::string& url) {
    const auto mounted = services.mountServerVolume(url, "guest", "");
    EXPECT_EQ(mounted.reference == 0, mounted.status != 0);
    return VolumeOutcome{mounted.status, mounted.comment};
  };
  expect(mount("no address"), FakeVolumes::BAD_PARAMETER, "error in user parameter list");
  expect(mount("smb://\xFF/x"), FakeVolumes::BAD_PARAMETER, "error in user parameter list");
  fake.refuseMounts(FakeVolumes::CANCELLED);
  expect(mount(SHARE), FakeVolumes::CANCELLED, "");
  fake.refuseMounts(FakeVolumes::SERVER_NOT_FOUND);
  expect(mount(SHARE), FakeVolumes::SERVER_NOT_FOUND, "");
  fake.refuseMounts(FakeVolumes::NO_AUTHENTICATION);
  expect(mount(SHARE), FakeVolumes::NO_AUTHENTICATION, "");
  fake.refuseMounts(FakeVolumes::OK);
  expect(mount(SHARE), FakeVolumes::OK, "no error");
  // The fake, as the system, says which one it is; a failed mount has no reference all the same.
  expect(mount(SHARE), FakeVolumes::ALREADY_MOUNTED, "drive volume already on-line at MountVol");
  const auto reference = services.referenceOfVolume(pointOf("USB Disk"));
  fake.refuseUnmounts(FakeVolumes::IN_USE);
  expect(services.unmountVolume(reference), FakeVolumes::IN_USE,
         "File is busy, dirent or volume is in use");
  fake.refuseUnmounts(FakeVolumes::OK);
  expect(services.unmountVolume(reference), FakeVolumes::OK, "no error");
  expect(services.unmountVolume(reference), FakeVolumes::NO_SUCH_VOLUME, "no such volume");
  expect(services.unmountVolume(0), FakeVolumes::NO_SUCH_VOLUME, "no such volume");
}

TEST_F(MacVolumesTest, AStatusWithoutATextIsToldAlone) {
  fake.refuseMounts(-12345);
  const auto mounted = services.mountServerVolume(SHARE, "guest", "");
  EXPECT_EQ(mounted.status, -12345);
  EXPECT_EQ(mounted.comment, "");
}

TEST_F(MacVolumesTest, TheServicesKnowWhatOthersHaveMounted) {
  const auto reference = fake.add("USB", "/Volumes/USB", "//guest:@192.0.2.10/USB");
  fake.add("Macintosh HD", "/", "/dev/disk3s1s1");
  EXPECT_EQ(services.referenceOfVolume("/Volumes/USB"), reference);
  EXPECT_EQ(services.pathOfVolume(reference), "/Volumes/USB");
  EXPECT_THAT(pathsOf(services), ElementsAre("USB at /Volumes/USB", "Macintosh HD at /"));
  fake.takeAway(reference);
  EXPECT_EQ(services.pathOfVolume(reference), std::nullopt);
  EXPECT_EQ(services.referenceOfVolume("/Volumes/USB"), 0);
}

TEST_F(MacVolumesTest, NetFsMountsFindsAndUnmounts) {
  expectToMountFindAndUnmount(network);
  EXPECT_EQ(fake.mounts().front(), (FakeVolumes::Mount{.url = SHARE,
                                                       .folder = "",
                                                       .user = "guest",
                                                       .password = "",
                                                       .asGuest = true,
                                                       .mayAsk = false,
                                                       .byNetFs = true}));
}

TEST_F(MacVolumesTest, WithAPasswordNetFsMountsAsTheUser) {
  EXPECT_EQ(network.mountServerVolume(SHARE, "somebody", "secret").status, 0);
  EXPECT_EQ(fake.mounts().front().user, "somebody");
  EXPECT_EQ(fake.mounts().front().password, "secret");
  EXPECT_FALSE(fake.mounts().front().asGuest);
  EXPECT_FALSE(fake.mounts().front().mayAsk);
}

TEST_F(MacVolumesTest, NetFsFailuresHaveTheirNumberAndAText) {
  const auto expect = [this](const std::string& url, int status, const std::string& comment) {
    const auto mounted = network.mountServerVolume(url, "guest", "");
    EXPECT_EQ(mounted.status, status) << url;
    EXPECT_EQ(mounted.comment, comment) << url;
    EXPECT_EQ(mounted.reference, 0) << url;
  };
  expect("smb://\xFF/x", EINVAL, "Invalid argument");
  expect("http://192.0.2.10/x", EINVAL, "Invalid argument");
  fake.refuseMounts(ETIMEDOUT);
  expect(SHARE, ETIMEDOUT, "Connection timed out");
  fake.refuseMounts(FakeVolumes::SERVER_NOT_FOUND);
  expect(SHARE, FakeVolumes::SERVER_NOT_FOUND, "NetFS failed");
  fake.refuseMounts(FakeVolumes::NO_MOUNT_POINT);
  expect(SHARE, EIO, "Input/output error");
  fake.refuseMounts(FakeVolumes::OK);
  ASSERT_EQ(network.mountServerVolume(SHARE, "guest", "").status, 0);
  expect(SHARE, EEXIST, "File exists");

  const auto reference = network.referenceOfVolume(pointOf("USB Disk"));
  fake.refuseUnmounts(FakeVolumes::IN_USE);
  EXPECT_EQ(network.unmountVolume(reference).status, EBUSY);
  EXPECT_EQ(network.unmountVolume(reference).comment, "Device or resource busy");
  EXPECT_EQ(network.unmountVolume(0).status, ENOENT);
  EXPECT_EQ(network.unmountVolume(-100).status, ENOENT);
}

TEST_F(MacVolumesTest, OfNetFsEachReferenceIsItsOwnAndOthersMountsGetOne) {
  fake.add("Macintosh HD", "/", "/dev/disk3s1s1");
  fake.add("USB", "/Volumes/USB", "//guest:@192.0.2.10/USB");
  const auto reference = network.referenceOfVolume("/Volumes/USB");
  EXPECT_GT(reference, 0);
  EXPECT_EQ(network.referenceOfVolume("/Volumes/USB"), reference);
  EXPECT_EQ(network.pathOfVolume(reference), "/Volumes/USB");
  EXPECT_NE(network.mountServerVolume(SHARE, "guest", "").reference, reference);
  EXPECT_THAT(pathsOf(network),
              ElementsAre(" at /", "USB at /Volumes/USB", "USB Disk at " + pointOf("USB Disk")));
}

TEST_F(MacVolumesTest, SharesAreThoseOfServersInTheTable) {
  fake.add("Macintosh HD", "/", "/dev/disk3s1s1");
  fake.add("a", "/Volumes/a", "//domain;me@home:pass@192.0.2.10:445/a%20b%2Fc");
  fake.add("b", "/Volumes/b", "//192.0.2.11");
  fake.add("c", "/Volumes/c", "//server.local/c");
  for (Volumes* const volumes :
       {static_cast<Volumes*>(&services), static_cast<Volumes*>(&network)}) {
    EXPECT_THAT(volumes->mountedShares(),
                ElementsAre(MountedShare{"192.0.2.10:445", "a b/c", "/Volumes/a"},
                            MountedShare{"server.local", "c", "/Volumes/c"}));
  }
}

TEST_F(MacVolumesTest, NothingMountedIsNothing) {
  EXPECT_THAT(services.volumes(), IsEmpty());
  EXPECT_THAT(network.volumes(), IsEmpty());
  EXPECT_THAT(network.mountedShares(), IsEmpty());
}

using MacVolumesDeathTest = MacVolumesTest;

/// In a process of its own, since what the system has is looked up once.
TEST_F(MacVolumesDeathTest, ASystemThatLacksAServiceIsServedByNetFs) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* const function :
       {"FSMountServerVolumeSync", "FSUnmountVolumeSync", "FSCopyURLForVolume", "FSGetVolumeInfo",
        "CFURLCreateFromFSRef", "none at all"}) {
    EXPECT_EXIT(
        {
          system.lose(function);
          const auto mounted = native<Volumes>().mountServerVolume(SHARE, "guest", "");
          const bool byNetFs = fake.mounts().front().byNetFs;
          const bool expected = std::string(function) != "none at all";
          std::_Exit(mounted.status == 0 && byNetFs == expected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "")
        << function;
  }
}

TEST_F(MacVolumesDeathTest, ASystemThatHasNoCommentsGivesNone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        system.lose("GetMacOSStatusCommentString");
        const auto mounted = native<Volumes>().mountServerVolume(SHARE, "guest", "");
        std::_Exit(mounted.status == 0 && mounted.comment.empty() && !fake.mounts().front().byNetFs
                       ? 0
                       : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ravelin::platform
