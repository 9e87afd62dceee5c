#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ravelin::announce {

/// The keys of an announcement, in the order in which they are sent.
enum class Key { event, mac, ip, uuid, label };
inline constexpr std::array KEYS{Key::event, Key::mac, Key::ip, Key::uuid, Key::label};

/// The key as it is sent.
[[nodiscard]] std::string_view nameOf(Key key);

/// What a device announces about its disks.
class Announcement {
 public:
  /// With the keys that the event needs and their default values; ip has none. Null unless it is
  /// the name of an event, either the command's or the one that is sent.
  static std::optional<Announcement> forEvent(std::string_view name);

  /// Sets a value and has it sent, also with an event that can do without.
  void give(Key key, const std::string& value);

  /// Leaves the key out, given or not.
  void omit(Key key);

  /// Whether the key is to be sent and has no value yet.
  [[nodiscard]] bool lacks(Key key) const;

  /// The text of the datagram about one disk. The number, unless it is empty, is put behind the
  /// disk's uuid and label.
  [[nodiscard]] std::string text(const std::string& number) const;

 private:
  struct Pair {
    std::optional<std::string> value;
    bool needed = false;
    bool omitted = false;
  };

  Pair& _pair(Key key) { return _pairs.at(static_cast<std::size_t>(key)); }
  [[nodiscard]] const Pair& _pair(Key key) const {
    return _pairs.at(static_cast<std::size_t>(key));
  }

  std::array<Pair, KEYS.size()> _pairs;
};

}  // namespace ravelin::announce
