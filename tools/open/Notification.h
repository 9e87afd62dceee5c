#pragma once

#include <cstdint>
#include <string>

namespace ravelin::open {

/// A notification of the desktop, about one thing. Main thread.
class Notification {
 public:
  /// Shows it, in the place of what it has shown before. Both texts are plain and in valid UTF-8.
  /// Where nobody shows notifications, nothing happens.
  void show(const std::string& summary, const std::string& body);

 private:
  std::uint32_t _number = 0;  ///< by which it is known; 0 when it is not there yet
};

}  // namespace ravelin::open
