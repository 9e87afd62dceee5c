#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "base/Text.h"
#include "platform/PropertyList.h"

namespace ravelin {

/// What the agent takes from the dictionary of its configuration file. Whatever the dictionary
/// holds, it is read; nothing is judged here.
struct Configuration {
  /// The name of the file in a support folder.
  static constexpr std::string_view FILE_NAME = "Ravelin Disk Config.plist";

  // The keys.
  static constexpr std::string_view MULTICAST_ADDRESSES = "MulticastAddresses";
  static constexpr std::string_view JOIN_IGMP = "JoinIGMP";
  static constexpr std::string_view IGMP_MEMBERSHIP_REFRESH_RATE = "IGMPMembershipRefreshRate";

  /// What one server listens for.
  struct Entry {
    Text group;             ///< null where it is neither a text nor a number
    std::int32_t port = 0;  ///< may be none

    /// Null for a value that is not an array of two items, which is passed over.
    static std::optional<Entry> of(const platform::PropertyListValue& value);
  };

  std::vector<Entry> multicastAddresses;
  bool joinIGMP = false;
  std::int32_t igmpMembershipRefreshRate = 0;  ///< in seconds

  /// Of no dictionary everything is absent.
  static Configuration of(const std::optional<platform::PropertyListDictionary>& dictionary);
};

/// The value of the key, or an absent one, which counts as 0 and false.
[[nodiscard]] platform::PropertyListValue valueForKey(
    const platform::PropertyListDictionary& dictionary, std::string_view key);

}  // namespace ravelin
