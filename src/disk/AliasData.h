#pragma once

#include "base/Text.h"
#include "base/ThreadSafety.h"

namespace ravelin {

/// What the main thread needs to make an alias of a mounted volume on the desktop. Any thread; each
/// text is set and read as a whole.
class AliasData {
 public:
  /// Both texts absent.
  AliasData() = default;
  AliasData(const AliasData&) = delete;
  AliasData& operator=(const AliasData&) = delete;

  /// The name that the alias gets on the desktop.
  [[nodiscard]] Text aliasName() const;
  void setAliasName(Text aliasName);

  /// The path of the mounted volume to which the alias points.
  [[nodiscard]] Text volumePath() const;
  void setVolumePath(Text volumePath);

 private:
  mutable Mutex _mutex;
  Text _aliasName GUARDED_BY(_mutex);
  Text _volumePath GUARDED_BY(_mutex);
};

}  // namespace ravelin
