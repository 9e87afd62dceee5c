#pragma once

#include <memory>
#include <string>

#include "platform/Service.h"

namespace ravelin::platform {

/// A picture that the system can show, from a file.
class Image {
 public:
  virtual ~Image() = default;

  /// The file that the picture was read from.
  [[nodiscard]] virtual const std::string& path() const = 0;
};

/// Reads pictures, by their content and never by their name. Main thread.
class ImageReader {
 public:
  virtual ~ImageReader() = default;

  /// The picture in the file, or null when there is no file, no picture in it that the system can
  /// read, or no way to read one just now. Raises nothing. May take some seconds.
  virtual std::unique_ptr<Image> imageWithContentsOfFile(const std::string& path) = 0;
};

template <>
ImageReader& native<ImageReader>();

}  // namespace ravelin::platform
