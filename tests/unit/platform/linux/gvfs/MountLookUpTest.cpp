#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "platform/Service.h"
#include "platform/SystemPrograms.h"
#include "platform/linux/gvfs/MountTable.h"

namespace ravelin::platform {
namespace {

using Names = std::vector<std::string>;

/// A system on which these things are mounted.
class MountedThings final : public SystemPrograms {
 public:
  enum class Lines { all, about };

  MountedThings(std::string table, Names gvfsNames)
      : _table(std::move(table),
               [names = std::move(gvfsNames)](const std::string&) { return names; }) {}

  MountListing mountTable() override { return _table.listing(); }
  MountListing mountTableAbout(std::string_view sought) override {
    return lines == Lines::all ? _table.listing() : _table.listingAbout(sought);
  }
  ChildResult mountGuestShare(const std::string&, const std::string&, const std::string&) override {
    return {};
  }
  ChildResult umount(const std::string&) override { return {}; }
  ChildResult mkdir(const std::string&) override { return {}; }
  ChildResult rmdir(const std::string&) override { return {}; }

  Lines lines = Lines::all;

 private:
  const MountTable _table;
  const Substitute<SystemPrograms> _inForce{*this};
};

/// Where the share is said to be mounted, with all lines of the listing or those about it.
Text pathOf(MountedThings& things, MountedThings::Lines lines, const std::string& address,
            const std::string& label) {
  things.lines = lines;
  Disk disk;
  disk.setIpAddress(address);
  disk.setLabel(label);
  return DiskManager::getMountedDiskMountDirectory(disk);
}

/// Tables, addresses and labels made of what is hard to tell apart.
class Dice {
 public:
  explicit Dice(unsigned seed) : _random(seed) {}

  std::size_t upTo(std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(0, most)(_random);
  }

  std::string anyOf(const Names& texts) { return texts[upTo(texts.size() - 1)]; }

  std::string severalOf(const Names& texts, std::size_t most) {
    std::string text;
    for (std::size_t count = upTo(most); count > 0; --count) {
      text += anyOf(texts);
    }
    return text;
  }

  std::string address() {
    return anyOf({"10.0.0.1", "1.0.0.1", "0.1", "nas", "", "1.1/x", "a\nb"});
  }

  std::string label() { return severalOf({"1", "2", "/", ".", " ", "U", "u", "%", "(", "\n"}, 3); }

  std::string line() {
    static const Names SOURCES{"//10.0.0.1/1U",
                               "//10.0.0.1/",
                               "//guest@10.0.0.1/",
                               "/dev/1.0.0.1/",
                               "none",
                               "",
                               "//nas/U",
                               "x"};
    static const Names PIECES{"1",     "2",     "/",    ".",     "\\040",    "\\134", "\\057",
                              "\\061", "\\0",   "U",    "u",     "10.0.0.1", "%20",   "(",
                              ",",     "\\012", "\377", "\\134", "040",      "\\377", "\\"};
    static const Names TYPES{"cifs", "smb3", "ext4", "fuse.gvfsd-fuse", "fuse\\056gvfsd-fuse",
                             "gvfs", ""};
    return anyOf(SOURCES) + severalOf(PIECES, 3) + " " + anyOf({"/mnt/", "mnt", "/10.0.0.1/"}) +
           severalOf(PIECES, 2) + " " + anyOf(TYPES) + " " + severalOf(PIECES, 4) +
           anyOf({" 0 0\n", "\n", " ", "\n\n"});
  }

 private:
  std::mt19937 _random;
};

TEST(MountLookUpTest, ItMakesNoDifferenceThatOtherLinesAreLeftOut) {
  std::size_t found = 0;
  std::size_t missed = 0;
  for (unsigned seed = 0; seed < 20'000; ++seed) {
    Dice dice(seed);
    std::string table;
    for (std::size_t count = dice.upTo(6); count > 0; --count) {
      table += dice.line();
    }
    Names names;
    if (dice.upTo(3) == 0) {
      names = {"smb-share:server=10.0.0.1,share=1u", "other"};
    }
    MountedThings things(table, names);
    const std::string address = dice.address();
    const std::string label = dice.label();
    const Text path = pathOf(things, MountedThings::Lines::all, address, label);
    ASSERT_EQ(pathOf(things, MountedThings::Lines::about, address, label), path)
        << "seed " << seed << ": " << address << " / " << label << " in\n"
        << table;
    (path ? found : missed) += 1;
  }
  EXPECT_GT(found, 1000U);
  EXPECT_GT(missed, 1000U);
}

TEST(MountLookUpTest, APathMayBeginAndEndInLinesBehindItsShare) {
  MountedThings things(
      "/dev/sda1 / ext4 rw 0 0\n"
      "//10.0.0.1/U mnt cifs rw 0 0\n"
      "none mnt tmpfs rw 0 0\n"
      "/dev/sda2 /mnt ext4 rw 0 0\n",
      {});
  for (const auto lines : {MountedThings::Lines::all, MountedThings::Lines::about}) {
    EXPECT_EQ(pathOf(things, lines, "10.0.0.1", "U"), "/dev/sda2 on /mnt");
  }
}

TEST(MountLookUpTest, ThePlaceOfAnAddressMayBeginInAnEscape) {
  MountedThings things(
      "/dev/sda1 / ext4 rw 0 0\n"
      "//x\\04010.0.0.1/U /mnt/u cifs rw 0 0\n",
      {});
  for (const auto lines : {MountedThings::Lines::all, MountedThings::Lines::about}) {
    EXPECT_EQ(pathOf(things, lines, "2010.0.0.1", "U"), "/mnt/u");
  }
}

TEST(MountLookUpTest, OnlyTheLinesAboutAShareAreMade) {
  std::string table;
  for (int number = 0; number < 1000; ++number) {
    table.append("//10.0.0.").append(std::to_string(number)).append("/USB /mnt/x cifs rw 0 0\n");
  }
  EXPECT_EQ(MountTable(table).listingAbout("10.0.0.70/USB").text,
            "//10.0.0.70/USB on /mnt/x (cifs, rw)\n"
            "//10.0.0.71/USB on /mnt/x (cifs, rw)\n");
  EXPECT_EQ(MountTable(table).listingAbout("10.0.0.7000/USB").text, "");
  // A name of letters may have lost their case, and a line feed belongs to two lines.
  EXPECT_EQ(MountTable(table).listingAbout("nas").text, MountTable(table).listing().text);
  EXPECT_EQ(MountTable(table).listingAbout("a\n/10.0.0.70").text, MountTable(table).listing().text);
}

}  // namespace
}  // namespace ravelin::platform
