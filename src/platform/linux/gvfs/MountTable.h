#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/SystemPrograms.h"
#include "platform/Volumes.h"

namespace ravelin::platform {

/// One mounted file system.
struct Mount {
  std::string source;
  std::string point;  ///< where it is mounted
  std::string type;
  std::string options;  ///< separated by commas
  bool operator==(const Mount&) const = default;
};

/// What is mounted: by the kernel, and by GVfs for this user, whose shares show as folders of one
/// file system. Any thread.
class MountTable {
 public:
  /// The table as it is now; null when the kernel does not show it.
  static std::optional<MountTable> read();

  /// The names of what is in a folder; none where it cannot be read.
  using FolderReader = std::function<std::vector<std::string>(const std::string& folder)>;
  static std::vector<std::string> namesInFolder(const std::string& folder);

  /// The table that the kernel's text stands for, and the GVfs mounts in the folders that it names.
  explicit MountTable(std::string kernelTable, const FolderReader& namesIn = namesInFolder);

  /// All of them, those of GVfs last.
  [[nodiscard]] std::vector<Mount> mounts() const;

  /// Those on a device or a server, those of GVfs last.
  [[nodiscard]] std::vector<Mount> volumes() const;

  /// The shares of servers, those of GVfs last.
  [[nodiscard]] std::vector<MountedShare> shares() const;

  /// Whether GVfs has mounted something at the path.
  [[nodiscard]] bool isGvfsMount(std::string_view path) const;

  /// The table as lines, the sources of shares with percent escapes and without regard to case:
  /// GVfs loses it, and the kernel's SMB file system keeps it as the user typed it.
  /// It is UTF-8: bytes that are not have the kernel's escapes, a backslash and three octal digits.
  [[nodiscard]] MountListing listing() const;

  /// The lines that matter to who looks for the first place of the text in the listing and for the
  /// path behind it: those that may have the text, and those behind each of them up to the next
  /// mount point. More lines than these may be there.
  [[nodiscard]] MountListing listingAbout(std::string_view sought) const;

  /// The mount point that is written so in the listing; the path itself where there is none.
  [[nodiscard]] std::string pointListedAs(const std::string& path) const;

 private:
  std::string _kernelTable;  // taken apart by whoever asks, as far as he needs
  bool _isPlain;             // no character is escaped that needs no escape
  std::vector<Mount> _gvfsMounts;
};

}  // namespace ravelin::platform
