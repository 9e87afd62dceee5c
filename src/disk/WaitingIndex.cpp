#include "disk/WaitingIndex.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "disk/TextHash.h"

namespace ravelin {

namespace {

using Getter = const Text& (Disk::*)() const;

constexpr std::array<Getter, 5> TEXTS = {&Disk::eventName, &Disk::macAddress, &Disk::ipAddress,
                                         &Disk::uuid, &Disk::label};

template <std::size_t... Indices, class Make>
auto arrayOf(std::index_sequence<Indices...> /*indices*/, const Make& make) {
  return std::array{make(Indices)...};
}

}  // namespace

WaitingIndex::WaitingIndex()
    : _kinds(arrayOf(std::make_index_sequence<KINDS>(), [](std::size_t kind) {
        const auto present = static_cast<Present>(kind);
        return Disks(0, Hash{present}, Equal{present});
      })) {}

WaitingIndex::Present WaitingIndex::_presentIn(const Disk& disk) {
  Present present = 0;
  for (std::size_t index = 0; index < TEXTS.size(); ++index) {
    present |= static_cast<Present>((disk.*TEXTS[index])().has_value()) << index;
  }
  return present;
}

std::size_t WaitingIndex::Hash::operator()(const Disk* disk) const {
  std::size_t hash = 0;
  for (std::size_t index = 0; index < TEXTS.size(); ++index) {
    if ((present >> index & 1U) != 0) {
      hash = std::rotl(hash, 7) ^ TextHash()(*(disk->*TEXTS[index])());
    }
  }
  return hash;
}

bool WaitingIndex::Equal::operator()(const Disk* one, const Disk* other) const {
  for (std::size_t index = 0; index < TEXTS.size(); ++index) {
    if ((present >> index & 1U) != 0 && (one->*TEXTS[index])() != (other->*TEXTS[index])()) {
      return false;
    }
  }
  return true;
}

void WaitingIndex::insert(const Disk& disk) { _kinds[_presentIn(disk)].insert(&disk); }

void WaitingIndex::erase(const Disk& disk) {
  Disks& disks = _kinds[_presentIn(disk)];
  const auto [begin, end] = disks.equal_range(&disk);
  const auto found = std::find(begin, end, &disk);
  if (found != end) {
    disks.erase(found);
  }
}

bool WaitingIndex::containsReceiverEqualTo(const Disk& other) const {
  const Present theirs = _presentIn(other);
  for (Present kind = 0; kind < KINDS; ++kind) {
    // A text that receivers of this kind have and the other lacks makes them unequal.
    if ((kind & ~theirs) == 0 && !_kinds[kind].empty() && _kinds[kind].contains(&other)) {
      return true;
    }
  }
  return false;
}

}  // namespace ravelin
