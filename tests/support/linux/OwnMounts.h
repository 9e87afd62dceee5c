#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

namespace ravelin::test {

/// Gives this process mounts of its own, which nobody else sees; for the process of a death test.
inline bool ownMounts() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Mounts an empty file system in memory at the folder.
inline bool mountMemory(const std::string& folder) {
  return ::mount("none", folder.c_str(), "tmpfs", 0, nullptr) == 0;
}

/// Mounts at the folder a file system whose server never replies: every access hangs.
/// The server is this process.
inline bool mountHung(const std::string& folder) {
  const int server = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
  const std::string options =
      std::string("fd=").append(std::to_string(server)) + ",rootmode=40000,user_id=0,group_id=0";
  return server >= 0 && ::mount("hung", folder.c_str(), "fuse", 0, options.c_str()) == 0;
}

}  // namespace ravelin::test
