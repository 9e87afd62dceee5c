#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ravelin {

/// A hash of texts under a secret of this process, so that nobody on the network can choose texts
/// that collide and so make a look-up slow. Any thread.
struct TextHash {
  using is_transparent = void;
  [[nodiscard]] std::size_t operator()(std::string_view text) const noexcept;
};

}  // namespace ravelin
