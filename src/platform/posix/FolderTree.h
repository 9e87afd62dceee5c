#pragma once

#include <string>

namespace ravelin::platform {

/// Removes the item of this name from the folder: a folder with all its content, in which no link
/// is followed and no other file system is entered. Returns 0, or the number of the error that
/// stopped it; what has gone by then is gone. Any thread.
[[nodiscard]] int removeTree(int folder, const std::string& name);

}  // namespace ravelin::platform
