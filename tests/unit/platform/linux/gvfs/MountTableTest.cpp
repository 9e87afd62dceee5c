#include "platform/linux/gvfs/MountTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

/// A folder that stands for the file system in which GVfs shows its mounts.
class MountTableTest : public testing::Test {
 protected:
  void mountByGvfs(const std::string& name) const { fs::create_directory(_gvfs + "/" + name); }

  [[nodiscard]] MountTable table(const std::string& others = "") const {
    return MountTable("gvfsd-fuse " + _gvfs + " fuse.gvfsd-fuse rw,user_id=0 0 0\n" + others);
  }

  const test::TemporaryDirectory _directory;
  const std::string _gvfs = _directory.path();
};

TEST_F(MountTableTest, TheKernelsEscapesAreUndone) {
  const MountTable table(
      "//192.0.2.10/USB\\040Disk /mnt/USB\\040Disk\\011\\012\\134x cifs rw,guest 0 0\n"
      "/dev/sda1 / ext4 rw,relatime 0 0\n");
  EXPECT_THAT(
      table.mounts(),
      ElementsAre(
          Mount{.source = "//192.0.2.10/USB Disk",
                .point = "/mnt/USB Disk\t\n\\x",
                .type = "cifs",
                .options = "rw,guest"},
          Mount{.source = "/dev/sda1", .point = "/", .type = "ext4", .options = "rw,relatime"}));
}

TEST_F(MountTableTest, WhatIsNoEscapeStays) {
  EXPECT_THAT(MountTable("a\\ b\\04 c\\489 rw\\777 0 0").mounts(),
              ElementsAre(Mount{
                  .source = "a\\", .point = "b\\04", .type = "c\\489", .options = "rw\\777"}));
}

TEST_F(MountTableTest, LinesThatAreNoneAreLeftOut) {
  EXPECT_THAT(MountTable("").mounts(), IsEmpty());
  EXPECT_THAT(MountTable("\n\n \none\ntwo words\n").mounts(), IsEmpty());
  EXPECT_THAT(MountTable("a b c").mounts(),
              ElementsAre(Mount{.source = "a", .point = "b", .type = "c", .options = ""}));
}

TEST_F(MountTableTest, TheListingHasALineForEachMount) {
  const MountTable table(
      "/dev/sda1 / ext4 rw,relatime 0 0\n"
      "//192.0.2.10/USB\\040Disk /mnt/My\\040Disk cifs rw,guest 0 0\n"
      "//192.0.2.10/\303\274 /mnt/u smb3 rw 0 0\n"
      "//is/no\\040share /mnt/n tmpfs rw 0 0\n");
  EXPECT_EQ(table.listing().text,
            "/dev/sda1 on / (ext4, rw, relatime)\n"
            "//192.0.2.10/USB%20Disk on /mnt/My Disk (cifs, rw, guest)\n"
            "//192.0.2.10/\303\274 on /mnt/u (smb3, rw)\n"
            "//is/no share on /mnt/n (tmpfs, rw)\n");
}

TEST_F(MountTableTest, GvfsMountsAreListedUnderTheirServersAndShares) {
  mountByGvfs("smb-share:server=192.0.2.10,share=usb%20disk,user=guest");
  mountByGvfs("smb-share:server=192.0.2.11,share=x");
  mountByGvfs("smb-share:domain=W,port=1445,server=192.0.2.12,share=odd%2C%20%28a%3Db%29");
  mountByGvfs("sftp:host=192.0.2.13");
  const std::string all = " (gvfs, rw, user_id=0)\n";
  EXPECT_EQ(table("/dev/sda1 / ext4 rw 0 0\n").listing().text,
            "gvfsd-fuse on " + _gvfs +
                " (fuse.gvfsd-fuse, rw, user_id=0)\n"
                "/dev/sda1 on / (ext4, rw)\n"
                "sftp:host=192.0.2.13 on " +
                _gvfs + "/sftp:host=192.0.2.13" + all + "//192.0.2.12:1445/odd,%20(a=b) on " +
                _gvfs +
                "/smb-share:domain=W,port=1445,server=192.0.2.12,share=odd%2C%20%28a%3Db%29" + all +
                "//guest@192.0.2.10/usb%20disk on " + _gvfs +
                "/smb-share:server=192.0.2.10,share=usb%20disk,user=guest" + all +
                "//192.0.2.11/x on " + _gvfs + "/smb-share:server=192.0.2.11,share=x" + all);
}

TEST_F(MountTableTest, TheCaseOfTheSourcesOfSharesMeansNothing) {
  mountByGvfs("smb-share:server=192.0.2.10,share=usb%20disk,user=guest");
  mountByGvfs("sftp:host=192.0.2.13");
  const MountListing listing = table(
                                   "/dev/sda1 / ext4 rw 0 0\n"
                                   "//192.0.2.11/X\200 /mnt/\377 cifs rw 0 0\n"
                                   "//192.0.2.12/\303\274 /mnt smb3 rw 0 0\n"
                                   "//is/none /mnt tmpfs rw 0 0\n")
                                   .listing();
  std::vector<std::string> sources;
  std::ranges::transform(listing.caseless, std::back_inserter(sources), [&](const auto& stretch) {
    return listing.text.substr(stretch.begin, stretch.size);
  });
  ASSERT_THAT(sources, ElementsAre("//192.0.2.11/X\\200", "//192.0.2.12/\303\274",
                                   "//guest@192.0.2.10/usb%20disk"));
  // Not something of the same text elsewhere.
  EXPECT_EQ(listing.caseless.front().begin, listing.text.find("//192.0.2.11"));
  EXPECT_THAT(MountTable("/DEV/SDA1 /MNT ext4 rw 0 0\n").listing().caseless, IsEmpty());
}

TEST_F(MountTableTest, BrokenNamesOfGvfsMountsAreListedAsFarAsTheyGo) {
  mountByGvfs("smb-share:");
  mountByGvfs("smb-share:server");
  mountByGvfs("smb-share:=,,=x");
  EXPECT_EQ(table().mounts().size(), 4U);
  EXPECT_THAT(table().listing().text, testing::HasSubstr("\n/// on "));
}

TEST_F(MountTableTest, AGvfsThatCannotBeReadHasNoMounts) {
  EXPECT_EQ(MountTable("gvfsd-fuse /nowhere/gvfs fuse.gvfsd-fuse rw 0 0\n").mounts().size(), 1U);
}

TEST_F(MountTableTest, GvfsMountsAreToldFromOthers) {
  mountByGvfs("smb-share:server=a,share=b");
  const MountTable all = table("/dev/sda1 /mnt ext4 rw 0 0\n");
  EXPECT_TRUE(all.isGvfsMount(_gvfs + "/smb-share:server=a,share=b"));
  EXPECT_FALSE(all.isGvfsMount(_gvfs + "/smb-share:server=a,share=b/"));
  EXPECT_FALSE(all.isGvfsMount(_gvfs));
  EXPECT_FALSE(all.isGvfsMount("/mnt"));
}

TEST_F(MountTableTest, VolumesAreOnDevicesOrServers) {
  mountByGvfs("smb-share:server=a,share=b");
  const auto volumes = table(
                           "proc /proc proc rw 0 0\n"
                           "/dev/sda1 / ext4 rw 0 0\n"
                           "//a/b /mnt cifs rw 0 0\n")
                           .volumes();
  ASSERT_EQ(volumes.size(), 3U);
  EXPECT_EQ(volumes[0].point, "/");
  EXPECT_EQ(volumes[1].point, "/mnt");
  EXPECT_EQ(volumes[2].point, _gvfs + "/smb-share:server=a,share=b");
}

TEST_F(MountTableTest, AListingIsUtf8WhateverIsMounted) {
  const MountTable table(
      "/dev/sda1 /mnt/\303\274\377\303 ext4 rw 0 0\n"
      "//192.0.2.10/X\200 /mnt/\360\237\222\276\355\240\200 cifs rw 0 0\n"
      "//192.0.2.11/X /mnt/x cifs rw 0 0\n");
  EXPECT_EQ(table.listing().text,
            "/dev/sda1 on /mnt/\303\274\\377\\303 (ext4, rw)\n"
            "//192.0.2.10/X\\200 on /mnt/\360\237\222\276\\355\\240\\200 (cifs, rw)\n"
            "//192.0.2.11/X on /mnt/x (cifs, rw)\n");
}

TEST_F(MountTableTest, AMountPointIsFoundAsItIsListed) {
  const MountTable table(
      "/dev/sda1 /mnt/\377 ext4 rw 0 0\n"
      "/dev/sda2 /mnt/\\134376 ext4 rw 0 0\n"
      "/dev/sda3 /mnt/\376 ext4 rw 0 0\n");
  EXPECT_EQ(table.pointListedAs("/mnt/\\377"), "/mnt/\377");
  EXPECT_EQ(table.pointListedAs("/mnt/\377"), "/mnt/\377");
  // One that is really called so comes first.
  EXPECT_EQ(table.pointListedAs("/mnt/\\376"), "/mnt/\\376");
  EXPECT_EQ(table.pointListedAs("/elsewhere"), "/elsewhere");
}

TEST_F(MountTableTest, SharesAreTakenApart) {
  mountByGvfs("smb-share:server=192.0.2.10,share=usb%20disk,user=guest");
  mountByGvfs("smb-share:domain=W,port=1445,server=192.0.2.12,share=x");
  mountByGvfs("sftp:host=192.0.2.13");
  const std::string prefix = _gvfs + "/smb-share:";
  EXPECT_THAT(
      table("/dev/sda1 / ext4 rw 0 0\n"
            "//192.0.2.14/a/b /mnt/\377 cifs rw 0 0\n"
            "//nothing /mnt cifs rw 0 0\n"
            "//no/share /mnt tmpfs rw 0 0\n")
          .shares(),
      ElementsAre(
          MountedShare{.server = "192.0.2.14", .share = "a/b", .rootPath = "/mnt/\\377"},
          MountedShare{.server = "nothing", .share = "", .rootPath = "/mnt"},
          MountedShare{.server = "192.0.2.12:1445",
                       .share = "x",
                       .rootPath = prefix + "domain=W,port=1445,server=192.0.2.12,share=x"},
          MountedShare{.server = "192.0.2.10",
                       .share = "usb disk",
                       .rootPath = prefix + "server=192.0.2.10,share=usb%20disk,user=guest"}));
}

TEST_F(MountTableTest, TheKernelShowsItsTable) {
  const auto table = MountTable::read();
  ASSERT_TRUE(table);
  EXPECT_THAT(table->mounts(),
              testing::Contains(testing::Field(&Mount::point, testing::StrEq("/proc"))));
}

}  // namespace
}  // namespace ravelin::platform
