// System calls that macOS has and the system here has not, in its terms. Included before every
// source of the macOS side.
#pragma once

#ifdef __cplusplus

#include <fcntl.h>
#include <limits.h>
#include <spawn.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <string>

// Renaming.
#define RENAME_SWAP RENAME_EXCHANGE
#define RENAME_EXCL RENAME_NOREPLACE
inline int renameatx_np(int fromFolder, const char* from, int toFolder, const char* to,
                        unsigned flags) {
  return ::renameat2(fromFolder, from, toFolder, to, flags);
}

// The path of what is open. A type of its own, so that this function takes it.
enum FakePathCommand { F_GETPATH };
inline int fcntl(int descriptor, FakePathCommand /*command*/, char* path) {
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t size = ::readlink(link.c_str(), path, PATH_MAX - 1);
  if (size < 0) {
    return -1;
  }
  path[size] = '\0';
  return 0;
}

// Attributes of files. Here what is a user's own has names of its own.
inline ssize_t fgetxattr(int descriptor, const char* name, void* value, size_t size,
                         uint32_t /*position*/, int /*options*/) {
  return ::fgetxattr(descriptor, (std::string("user.") + name).c_str(), value, size);
}
inline int fsetxattr(int descriptor, const char* name, const void* value, size_t size,
                     uint32_t /*position*/, int options) {
  return ::fsetxattr(descriptor, (std::string("user.") + name).c_str(), value, size, options);
}

// Starting programs. With the flag a program inherits what is named to it, and nothing else.
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000
inline bool& fakeClosesDescriptors() {
  thread_local bool closes = false;
  return closes;
}
inline int fakeSetSpawnFlags(posix_spawnattr_t* attributes, short flags) {
  fakeClosesDescriptors() = (flags & POSIX_SPAWN_CLOEXEC_DEFAULT) != 0;
  return ::posix_spawnattr_setflags(attributes,
                                    static_cast<short>(flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT));
}
#define posix_spawnattr_setflags fakeSetSpawnFlags
inline int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions,
                                                  int descriptor) {
  if (!fakeClosesDescriptors() || descriptor != STDERR_FILENO) {
    return 0;
  }
  // The standard ones are named in their order.
  fakeClosesDescriptors() = false;
  return ::posix_spawn_file_actions_addclosefrom_np(actions, STDERR_FILENO + 1);
}

#endif
