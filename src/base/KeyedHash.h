#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ravelin {

/// A hash of texts and numbers, one after the other, which nobody outside the process can foretell:
/// SipHash-1-3 under a key that is drawn at random when the process first needs it. So nobody can
/// choose texts that meet in a hash table, however many they send. Where one text ends and the next
/// one begins counts, too. The same for the same texts as long as the process lives. Any thread.
class KeyedHash {
 public:
  using Key = std::array<std::uint64_t, 2>;

  /// Under the key of the process.
  KeyedHash() : KeyedHash(_keyOfProcess()) {}
  explicit KeyedHash(const Key& key)
      : _state{key[0] ^ 0x736f6d6570736575U, key[1] ^ 0x646f72616e646f6dU,
               key[0] ^ 0x6c7967656e657261U, key[1] ^ 0x7465646279746573U} {}

  void add(std::uint64_t number) {
    _state[3] ^= number;
    _mix();
    _state[0] ^= number;
  }

  void add(std::string_view text) {
    add(std::uint64_t{text.size()});
    std::uint64_t word = 0;
    for (; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
      std::memcpy(&word, text.data(), sizeof word);
      add(word);
    }
    if (!text.empty()) {
      word = 0;
      std::memcpy(&word, text.data(), text.size());
      add(word);
    }
  }

  /// The hash of what has been added. Nothing can be added afterwards.
  [[nodiscard]] std::uint64_t take() {
    constexpr std::uint64_t END = 0xff;
    constexpr int LAST_ROUNDS = 3;
    _state[2] ^= END;
    for (int round = 0; round < LAST_ROUNDS; ++round) {
      _mix();
    }
    return _state[0] ^ _state[1] ^ _state[2] ^ _state[3];
  }

 private:
  static const Key& _keyOfProcess();

  void _mix() {
    auto& [a, b, c, d] = _state;
    a += b;
    b = std::rotl(b, 13) ^ a;
    a = std::rotl(a, 32);
    c += d;
    d = std::rotl(d, 16) ^ c;
    a += d;
    d = std::rotl(d, 21) ^ a;
    c += b;
    b = std::rotl(b, 17) ^ c;
    c = std::rotl(c, 32);
  }

  std::array<std::uint64_t, 4> _state;
};

}  // namespace ravelin
