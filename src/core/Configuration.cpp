#include "core/Configuration.h"

namespace ravelin {

using platform::PropertyListDictionary;
using platform::PropertyListValue;

PropertyListValue valueForKey(const PropertyListDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? PropertyListValue() : found->second;
}

std::optional<Configuration::Entry> Configuration::Entry::of(const PropertyListValue& value) {
  const auto* const items = value.array();
  if (items == nullptr || items->size() != 2) {
    return std::nullopt;
  }
  return Entry{.group = items->front().stringValue(), .port = items->back().intValue()};
}

Configuration Configuration::of(const std::optional<PropertyListDictionary>& dictionary) {
  Configuration configuration;
  if (!dictionary) {
    return configuration;
  }
  configuration.igmpMembershipRefreshRate =
      valueForKey(*dictionary, IGMP_MEMBERSHIP_REFRESH_RATE).intValue();
  configuration.joinIGMP = valueForKey(*dictionary, JOIN_IGMP).boolValue();
  const PropertyListValue entries = valueForKey(*dictionary, MULTICAST_ADDRESSES);
  if (entries.array() != nullptr) {
    for (const PropertyListValue& value : *entries.array()) {
      if (auto entry = Entry::of(value)) {
        configuration.multicastAddresses.push_back(*std::move(entry));
      }
    }
  }
  return configuration;
}

}  // namespace ravelin
