#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/Service.h"

namespace ravelin::platform {

/// What is mounted, as "/sbin/mount" without arguments lists it.
struct MountListing {
  /// Some of the text, counted in bytes.
  struct Stretch {
    std::size_t begin = 0;
    std::size_t size = 0;
  };

  /// A line for each mount: the source (for a share "//user@server/share", with percent escapes),
  /// " on ", the mount point, a blank, and in parentheses the type of the file system and its
  /// options.
  std::string text;

  /// Where upper and lower case mean the same, in the order of the text: the sources of shares, on
  /// a system that may have lost the case of their names. None on a system that keeps it.
  std::vector<Stretch> caseless;
};

/// The system's programs for mounting by command. Any thread; the caller waits until the program
/// has ended. Each raises LaunchException when the program cannot be started.
class SystemPrograms {
 public:
  virtual ~SystemPrograms() = default;

  /// What "/sbin/mount" without arguments writes, however it ends. A system that has the table
  /// without this program lists it in the same form, and raises LaunchException where it cannot be
  /// read.
  virtual MountListing mountTable() = 0;

  /// The same for who looks for the first place of a text in it and for the path behind that place:
  /// lines may be missing that neither can have the text, whatever the case of its letters, nor
  /// stand behind one that can, up to the next mount point.
  virtual MountListing mountTableAbout(std::string_view /*sought*/) { return mountTable(); }

  /// "/sbin/mount" for the share of an SMB server, as guest without a password, with the folder as
  /// its mount point. The share's name has percent escapes, the server stands as it is. The output
  /// is collected.
  virtual ChildResult mountGuestShare(const std::string& server, const std::string& share,
                                      const std::string& folder) = 0;

  /// "/sbin/umount" with the mount point as its only argument; the output is not collected.
  virtual ChildResult umount(const std::string& path) = 0;

  /// "/bin/mkdir" with the path as its only argument.
  virtual ChildResult mkdir(const std::string& path) = 0;

  /// "/bin/rmdir" with the path as its only argument.
  virtual ChildResult rmdir(const std::string& path) = 0;
};

template <>
SystemPrograms& native<SystemPrograms>();

}  // namespace ravelin::platform
