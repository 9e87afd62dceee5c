#include "platform/macos/MacShortcuts.h"

#import <Foundation/Foundation.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/param.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>

#include "platform/macos/FoundationText.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/FolderTree.h"

namespace ravelin::platform {

namespace {

/// Network file systems often have just the plain kind of renaming.
int renameWith(unsigned flag, int folder, const std::string& from, const std::string& to) {
  if (::renameatx_np(folder, from.c_str(), folder, to.c_str(), flag) == 0) {
    return 0;
  }
  return errno == ENOTSUP || errno == EINVAL ? ENOSYS : errno;
}

/// The folder's own path, without links; null when the system does not tell.
Text pathOf(int folder) {
  std::array<char, MAXPATHLEN> path{};
  return ::fcntl(folder, F_GETPATH, path.data()) == 0 ? Text(path.data()) : std::nullopt;
}

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Null on success. Not told whether it is a folder, the system would look itself, through a link.
Text moveToTrashAtPath(const std::string& path, bool isFolder) {
  @autoreleasepool {
    NSString* const text = stringOf(path);
    if (text == nil) {
      return "Its name is not UTF-8";
    }
    NSURL* const item = [NSURL fileURLWithPath:text isDirectory:isFolder];
    NSError* error = nil;
    const bool isMoved = [[NSFileManager defaultManager] trashItemAtURL:item
                                                       resultingItemURL:nullptr
                                                                  error:&error];
    return isMoved ? Text() : Text(textOrNull(textOf([error localizedDescription])));
  }
}

FileError notMoved(const std::string& reason) {
  return FileError{std::string("Not moved to the trash: ").append(reason)};
}

}  // namespace

bool MacShortcuts::isShortcut(int folder, const std::string& name, FoundItem& item) const {
  if (!S_ISREG(item.status.st_mode) && !S_ISDIR(item.status.st_mode)) {
    return false;
  }
  if (!item.content.isOpen()) {
    item.content = _access.openFound(folder, name, item);
  }
  return item.content.isOpen() && ::fgetxattr(item.content.number(), MARK, nullptr, 0, 0, 0) >= 0;
}

int MacShortcuts::mark(int folder, const std::string& name) const {
  const Descriptor opened(::openat(folder, name.c_str(), READING | O_NOFOLLOW));
  const bool isMarked = opened.isOpen() && ::fsetxattr(opened.number(), MARK, "", 0, 0, 0) == 0;
  return isMarked ? 0 : errno;
}

int MacShortcuts::renameIfFree(int folder, const std::string& from, const std::string& to) const {
  return renameWith(RENAME_EXCL, folder, from, to);
}

int MacShortcuts::exchange(int folder, const std::string& one, const std::string& other) const {
  return renameWith(RENAME_SWAP, folder, one, other);
}

int MacShortcuts::remove(int folder, const std::string& name) const {
  return removeTree(folder, name);
}

std::optional<FileError> MacShortcuts::moveToTrash(const BeneathResolver::Place& place,
                                                   const FoundItem& item) {
  const Text folder = pathOf(place.folder.number());
  const std::string path = textOrNull(folder) + "/" + place.name;
  struct stat status{};
  // The trash takes a path, so look as late as can be whether it still leads to the item.
  if (!folder || ::lstat(path.c_str(), &status) != 0 || !isSame(status, item.status)) {
    return notMoved("It is no longer there");
  }
  if (const Text failure = moveToTrashAtPath(path, S_ISDIR(status.st_mode))) {
    return notMoved(*failure);
  }
  const FoundItem left = _access.find(place.folder.number(), place.name);
  return left.error == 0 && isSame(left.status, item.status)
             ? std::optional(notMoved("It is still there"))
             : std::nullopt;
}

}  // namespace ravelin::platform
