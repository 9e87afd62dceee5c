#include "disk/AliasData.h"

#include <utility>

namespace ravelin {

Text AliasData::aliasName() const {
  const std::lock_guard lock(_mutex);
  return _aliasName;
}

void AliasData::setAliasName(Text aliasName) {
  const std::lock_guard lock(_mutex);
  _aliasName = std::move(aliasName);
}

Text AliasData::volumePath() const {
  const std::lock_guard lock(_mutex);
  return _volumePath;
}

void AliasData::setVolumePath(Text volumePath) {
  const std::lock_guard lock(_mutex);
  _volumePath = std::move(volumePath);
}

}  // namespace ravelin
