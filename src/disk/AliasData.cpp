#include "disk/AliasData.h"

#include <utility>

namespace ravelin {

Text AliasData::aliasName() const {
  const LockGuard lock(_mutex);
  return _aliasName;
}

void AliasData::setAliasName(Text aliasName) {
  const LockGuard lock(_mutex);
  _aliasName = std::move(aliasName);
}

Text AliasData::volumePath() const {
  const LockGuard lock(_mutex);
  return _volumePath;
}

void AliasData::setVolumePath(Text volumePath) {
  const LockGuard lock(_mutex);
  _volumePath = std::move(volumePath);
}

}  // namespace ravelin
