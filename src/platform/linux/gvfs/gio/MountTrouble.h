#pragma once

#include <string_view>

namespace ravelin::gvfs {

/// Why a share cannot be mounted.
enum class MountTrouble {
  unknown,
  noSuchShare,   ///< the server has none of this name
  notPermitted,  ///< the server does not let this user in
  refused,       ///< at the server's address nothing takes connections
  noAnswer,      ///< the server cannot be reached
};

/// What the message of a failure of GVfs says. GVfs passes on the text of the system's error in the
/// session's language, and nothing else. Any thread.
[[nodiscard]] MountTrouble mountTroubleBehind(std::string_view message);

}  // namespace ravelin::gvfs
