#pragma once

#include <stdexcept>
#include <string>

#include "base/Text.h"
#include "platform/Service.h"

namespace ravelin::platform {

class Image;

/// What a platform's workspace raises where it does not just answer no.
class WorkspaceException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The desktop as the user sees it. Main thread.
class Workspace {
 public:
  virtual ~Workspace() = default;

  /// Gives the file the picture as its own icon; the file must lie beneath the folder (see
  /// FileManager). False when that fails; the file is then as it was, or has its icon in some of
  /// the places where desktops look for it. May raise WorkspaceException.
  virtual bool setIcon(const Image& image, const std::string& forFile, const Text& beneath) = 0;
};

template <>
Workspace& native<Workspace>();

}  // namespace ravelin::platform
