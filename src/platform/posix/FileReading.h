#pragma once

#include <sys/stat.h>

#include <cstddef>

#include "platform/FileManager.h"
#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

/// The content of the regular file, which has just been opened if it could be. Files of the
/// kernel's that announce no size are read, too. An error (EFBIG) where there is more than the
/// limit. Any thread.
[[nodiscard]] FileContents contentsOf(const Descriptor& file, std::size_t limit);

/// No content, for the reason with this number. Any thread.
[[nodiscard]] FileContents noContents(int error);

/// No content, because what has this status is no regular file. Any thread.
[[nodiscard]] FileContents noFile(const struct stat& status);

}  // namespace ravelin::platform
