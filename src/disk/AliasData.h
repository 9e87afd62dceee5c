#pragma once

#include <mutex>

#include "base/Text.h"

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
  mutable std::mutex _mutex;
  Text _aliasName;
  Text _volumePath;
};

}  // namespace ravelin
