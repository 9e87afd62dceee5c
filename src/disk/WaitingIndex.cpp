#include "disk/WaitingIndex.h"

#include <bit>
#include <cstddef>

#include "disk/TextKey.h"

namespace ravelin {

namespace {

using Getter = const Text& (Disk::*)() const;

/// The texts in which disks differ most come first.
constexpr std::array<Getter, 5> TEXTS = {&Disk::uuid, &Disk::label, &Disk::macAddress,
                                         &Disk::ipAddress, &Disk::eventName};

constexpr bool has(std::uint32_t kind, std::size_t index) { return (kind >> index & 1U) != 0; }

}  // namespace

WaitingIndex::Entry::Entry(const Disk& entered, Kind kind) : disk(&entered) {
  for (std::size_t index = 0; index < TEXTS.size(); ++index) {
    const Text& text = (entered.*TEXTS[index])();
    if (text && has(kind, index)) {
      hash = std::rotl(hash, 7) ^ TextKey(*text).hash;
    }
  }
}

bool WaitingIndex::Before::operator()(const Entry& one, const Entry& other) const {
  if (one.hash != other.hash) {
    return one.hash < other.hash;
  }
  for (std::size_t index = 0; index < TEXTS.size(); ++index) {
    if (has(kind, index)) {
      const Text& text = (one.disk->*TEXTS[index])();
      const Text& otherText = (other.disk->*TEXTS[index])();
      if (text != otherText) {
        return text < otherText;
      }
    }
  }
  return false;
}

WaitingIndex::WaitingIndex() {
  for (Kind kind = 0; kind < KINDS; ++kind) {
    _disks[kind] = std::multiset<Entry, Before>(Before{kind});
  }
}

WaitingIndex::Kind WaitingIndex::_kindOf(const Disk& disk) {
  Kind kind = 0;
  for (std::size_t index = 0; index < TEXTS.size(); ++index) {
    kind |= (disk.*TEXTS[index])() ? Kind{1} << index : 0;
  }
  return kind;
}

void WaitingIndex::insert(const Disk& disk) {
  const Kind kind = _kindOf(disk);
  _disks[kind].insert(Entry(disk, kind));
  _kindsInUse |= Kind{1} << kind;
}

void WaitingIndex::erase(const Disk& disk) {
  const Kind kind = _kindOf(disk);
  auto& alike = _disks[kind];
  auto [at, end] = alike.equal_range(Entry(disk, kind));
  while (at != end && at->disk != &disk) {
    ++at;
  }
  if (at != end) {
    alike.erase(at);
  }
  if (alike.empty()) {
    _kindsInUse &= ~(Kind{1} << kind);
  }
}

bool WaitingIndex::containsReceiverEqualTo(const Disk& other) const {
  const Kind kindOfOther = _kindOf(other);
  for (Kind kinds = _kindsInUse; kinds != 0; kinds &= kinds - 1) {
    const auto kind = static_cast<Kind>(std::countr_zero(kinds));
    // A text that receivers of this kind have and the other lacks makes them unequal.
    if ((kind & ~kindOfOther) == 0 && _disks[kind].contains(Entry(other, kind))) {
      return true;
    }
  }
  return false;
}

}  // namespace ravelin
