#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace ravelin {

/// The IPv4 address in a raw socket address, in host order; 0 where there is none. Any thread.
[[nodiscard]] std::uint32_t senderIn(std::span<const std::byte> rawAddress);

}  // namespace ravelin
