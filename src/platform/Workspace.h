#pragma once

#include <stdexcept>
#include <string>

#include "base/Text.h"
#include "platform/Service.h"

namespace ravelin::platform {

class Image;

/// What a platform's workspace raises where it does not just return false.
class WorkspaceException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The desktop as the user sees it. Main thread.
class Workspace {
 public:
  virtual ~Workspace() = default;

  /// Gives the shortcut at the path the picture, which this system's ImageReader has read, as its
  /// own icon. The path must lie beneath the folder (see FileManager); what is no shortcut stays as
  /// it is. False when that fails, wholly or in part. May raise WorkspaceException, and take some
  /// seconds.
  virtual bool setIcon(const Image& image, const std::string& forFile, const Text& beneath) = 0;

  /// The shortcut at the path, which has just been made, shows no picture that an earlier one of
  /// this path was given. Where the icon goes with the file there is nothing to do. May take some
  /// seconds.
  virtual void forgetIcon(const std::string& /*ofFile*/, const Text& /*beneath*/) {}
};

template <>
Workspace& native<Workspace>();

}  // namespace ravelin::platform
