#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <optional>
#include <utility>

#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

/// What each system has of its own for starting child processes and learning of their end. Any
/// thread.
class ProcessSystem {
 public:
  virtual ~ProcessSystem() = default;

  /// A pipe that programs started here do not inherit: the end to read from, then the one to write
  /// to. Nothing, with the reason in errno, where that fails.
  [[nodiscard]] virtual std::optional<std::pair<Descriptor, Descriptor>> pipe() const = 0;

  /// The variables of this process's environment, as a new program takes them.
  [[nodiscard]] virtual char** environment() const = 0;

  /// Completes the settings of a program that is about to be started so that it inherits no
  /// descriptor but the first three. Signals and those three are already set.
  virtual void keepDescriptorsBack(posix_spawnattr_t& attributes,
                                   posix_spawn_file_actions_t& actions) const = 0;

  /// A descriptor that is readable, as poll sees it, from the child's end on. The child may have
  /// ended by now, but nobody has waited for it. None, with the reason in errno, where that fails.
  [[nodiscard]] virtual Descriptor watchEndOf(pid_t child) const = 0;
};

}  // namespace ravelin::platform
