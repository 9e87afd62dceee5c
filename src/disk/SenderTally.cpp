#include "disk/SenderTally.h"

namespace ravelin {

void SenderTally::add(const Disk& disk) {
  const std::size_t text = disk.textSize();
  for (Share* share : {&_shares[disk.sender()], &_all}) {
    ++share->disks;
    share->text += text;
  }
}

void SenderTally::subtract(const Disk& disk) {
  const auto found = _shares.find(disk.sender());
  if (found == _shares.end()) {
    return;
  }
  const std::size_t text = disk.textSize();
  for (Share* share : {&found->second, &_all}) {
    --share->disks;
    share->text -= text;
  }
  if (found->second.disks == 0) {
    _shares.erase(found);
  }
}

SenderTally::Share SenderTally::of(std::uint32_t sender) const {
  const auto found = _shares.find(sender);
  return found == _shares.end() ? Share() : found->second;
}

}  // namespace ravelin
