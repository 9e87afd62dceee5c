#pragma once

#include <string>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/Service.h"

namespace ravelin::platform {

/// The system's programs for mounting by command. Any thread; the caller waits until the program
/// has ended. Each raises LaunchException when the program cannot be started.
class SystemPrograms {
 public:
  virtual ~SystemPrograms() = default;

  /// "/sbin/mount" without arguments. Its output lists what is mounted, a line for each:
  /// the source (for a share "//user@server/share", with percent escapes), " on ", the mount point,
  /// a blank, and in parentheses the type of the file system and its options.
  /// The caller will look for the text that it seeks. A system that has lost the case of a share's
  /// name writes the name as it is sought.
  virtual ChildResult mountTable(const std::string& sought) = 0;

  /// "/sbin/mount" with these arguments: "-t", "smbfs", "//user:password@server/share" with percent
  /// escapes, and a folder. A system that says it differently does what is meant. The output is
  /// collected.
  virtual ChildResult mount(const std::vector<std::string>& arguments) = 0;

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
