#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string_view>

namespace ravelin {

/// A text as the key of an ordered index, and its order there. Texts are compared only where their
/// hashes are the same, so that a look-up reads the nodes of the index and hardly any text beside
/// them. Texts chosen to have the same hash cost just their comparison. The text is not owned.
struct TextKey {
  explicit TextKey(std::string_view keyText)
      : hash(std::hash<std::string_view>()(keyText.substr(0, HASHED))), text(keyText) {}
  std::strong_ordering operator<=>(const TextKey&) const = default;
  bool operator==(const TextKey&) const = default;

  std::size_t hash;
  std::string_view text;

 private:
  /// A long text is not read to its end for its hash.
  static constexpr std::size_t HASHED = 64;
};

}  // namespace ravelin
