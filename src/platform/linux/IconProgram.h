#pragma once

#include <string>
#include <vector>

namespace ravelin::platform {

/// The short-lived helper program that decodes pictures and keeps the metadata of the desktop's
/// files, so that the libraries for it, and whatever a broken picture does to them, stay out of
/// this process. Main thread.
class IconProgram {
 public:
  /// Runs the helper with the arguments, for a few seconds at the most; true when it ended with
  /// success. False also where it is not installed.
  static bool run(const std::vector<std::string>& arguments);
};

}  // namespace ravelin::platform
