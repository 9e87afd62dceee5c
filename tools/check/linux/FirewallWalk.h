#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "check/linux/FirewallRules.h"

namespace ravelin::check {

/// A UDP datagram from the network, as far as it is known.
struct FirewallPacket {
  std::optional<std::uint32_t> group;  ///< null for one that is sent to this machine alone
  std::uint16_t port = 0;
};

/// Which ends of a chain a datagram may reach.
struct FirewallEnds {
  bool accept = false;
  bool drop = false;
  bool goesOn = false;  ///< back to where the chain was called, or to its policy

  void add(const FirewallEnds& other) {
    accept |= other.accept;
    drop |= other.drop;
    goesOn |= other.goesOn;
  }

  static constexpr FirewallEnds acceptOrDrop() {
    return {.accept = true, .drop = true, .goesOn = false};
  }
};

/// Follows a datagram through the chains. Where a rule asks for something that is not known, it is
/// followed both ways.
class FirewallWalk {
 public:
  /// The rules must outlive this object.
  FirewallWalk(const FirewallRules& rules, const FirewallPacket& packet)
      : _rules(rules), _packet(packet) {}

  FirewallEnds through(const FirewallRules::Name& chain) { return _walk(chain, 0); }

 private:
  using Json = FirewallRules::Json;
  using Name = FirewallRules::Name;

  /// Whether something holds; in this order, so that the larger one is what holds for either.
  enum class Truth { no, maybe, yes };

  FirewallEnds _walk(const Name& name, int depth);
  /// These return true when nothing gets past the rule.
  bool _walkRule(const Name& name, const Json& statements, int depth, FirewallEnds& ends);
  bool _walkMap(const Name& name, const Json& map, int depth, Truth applies, FirewallEnds& ends);
  bool _take(const Name& name, const std::string& kind, const Json& content, int depth,
             Truth applies, FirewallEnds& ends);

  [[nodiscard]] Truth _matches(const Name& name, const Json& match) const;
  /// Whether what is on the left has a value that is on the right.
  [[nodiscard]] Truth _compare(const Name& name, const Json& left, const Json& right) const;
  /// Whether the value is the one, or one of those, that stand there.
  [[nodiscard]] Truth _isAmong(const Name& name, const Json& value, const Json& there) const;
  [[nodiscard]] Truth _isInAny(const Name& name, const Json& value, const Json& list) const;
  static Truth _isInRange(const Json& value, const Json& range);
  static Truth _hasPrefix(const Json& value, const Json& prefix);
  static Truth _isSame(const Json& value, const Json& there);

  /// What the datagram has there; null for what is not known.
  [[nodiscard]] Json _valueOf(const Json& left) const;
  [[nodiscard]] Json _meta(const std::string& key) const;
  [[nodiscard]] Json _payload(const std::string& protocol, const std::string& field) const;

  const FirewallRules& _rules;
  const FirewallPacket _packet;
  int _walked = 0;
};

}  // namespace ravelin::check
