#include "disk/Disk.h"

namespace ravelin {

namespace {

bool matches(const Text& mine, const Text& theirs) { return !mine || mine == theirs; }

}  // namespace

std::optional<Disk::Date> Disk::lastUpdateTime() const {
  const Date::rep ticks = _lastUpdateTime.load();
  return ticks == NO_DATE ? std::nullopt : std::optional(Date(Date::duration(ticks)));
}

void Disk::setLastUpdateTime(std::optional<Date> lastUpdateTime) {
  _lastUpdateTime.store(lastUpdateTime ? lastUpdateTime->time_since_epoch().count() : NO_DATE);
}

bool Disk::isEqual(const Disk& other) const {
  return matches(_eventName, other._eventName) && matches(_macAddr, other._macAddr) &&
         matches(_ipAddr, other._ipAddr) && matches(_uuid, other._uuid) &&
         matches(_label, other._label);
}

}  // namespace ravelin
