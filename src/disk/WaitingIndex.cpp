#include "disk/WaitingIndex.h"

#include <bit>

#include "disk/TextHash.h"

namespace ravelin {

namespace {

using Getter = const Text& (Disk::*)() const;

constexpr std::array<Getter, 5> TEXTS = {&Disk::eventName, &Disk::macAddress, &Disk::ipAddress,
                                         &Disk::uuid, &Disk::label};

}  // namespace

struct WaitingIndex::Features {
  explicit Features(const Disk& disk) {
    for (std::size_t index = 0; index < TEXTS.size(); ++index) {
      if (const Text& text = (disk.*TEXTS[index])()) {
        kind |= Kind{1} << index;
        hashes[index] = TextHash()(*text);
      }
    }
  }

  /// The hash of those of the texts that make up the kind.
  [[nodiscard]] std::size_t hashAs(Kind part) const {
    std::size_t hash = part;
    for (std::size_t index = 0; index < TEXTS.size(); ++index) {
      const bool counts = (part >> index & 1U) != 0;
      hash = std::rotl(hash, 7) ^ (counts ? hashes[index] : 0);
    }
    return hash;
  }

  Kind kind = 0;
  std::array<std::size_t, TEXTS.size()> hashes{};
};

void WaitingIndex::insert(const Disk& disk) {
  const Features features(disk);
  _disks.insert(features.hashAs(features.kind), &disk);
  if (_countOfKind[features.kind]++ == 0) {
    _kindsInUse |= 1U << features.kind;
  }
}

void WaitingIndex::erase(const Disk& disk) {
  const Features features(disk);
  _disks.erase(features.hashAs(features.kind),
               [&](const Disk* candidate) { return candidate == &disk; });
  if (--_countOfKind[features.kind] == 0) {
    _kindsInUse &= ~(1U << features.kind);
  }
}

bool WaitingIndex::containsReceiverEqualTo(const Disk& other) const {
  const Features features(other);
  for (std::uint32_t kinds = _kindsInUse; kinds != 0; kinds &= kinds - 1) {
    const auto kind = static_cast<Kind>(std::countr_zero(kinds));
    // A text that receivers of this kind have and the other lacks makes them unequal.
    if ((kind & ~features.kind) != 0) {
      continue;
    }
    const auto isEqual = [&](const Disk* disk) { return disk->isEqual(other); };
    if (_disks.find(features.hashAs(kind), isEqual) != nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace ravelin
