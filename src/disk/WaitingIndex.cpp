#include "disk/WaitingIndex.h"

#include <bit>

namespace ravelin {

void WaitingIndex::insert(const Disk& disk) {
  const Disk::Texts kind = disk.presentTexts();
  _disks.insert(disk.hashOf(kind), disk);
  ++_countOfKind[kind];
  _kindsInUse |= 1U << kind;
}

void WaitingIndex::erase(const Disk& disk) {
  const Disk::Texts kind = disk.presentTexts();
  _disks.erase(disk.hashOf(kind), disk);
  if (--_countOfKind[kind] == 0) {
    _kindsInUse &= ~(1U << kind);
  }
}

bool WaitingIndex::containsReceiverEqualTo(const Disk& other) const {
  const Disk::Texts kindOfOther = other.presentTexts();
  for (std::uint32_t kinds = _kindsInUse; kinds != 0; kinds &= kinds - 1) {
    const auto kind = static_cast<Disk::Texts>(std::countr_zero(kinds));
    // A text that receivers of this kind have and the other lacks makes them unequal.
    if ((kind & ~kindOfOther) == 0) {
      bool isThere = false;
      _disks.forEach(other.hashOf(kind),
                     [&](const Disk& disk) { isThere = isThere || disk.isEqual(other); });
      if (isThere) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace ravelin
