#include "check/linux/FirewallWalk.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>

namespace ravelin::check {

namespace {

using Json = FirewallRules::Json;

constexpr int DEEPEST = 32;
constexpr int MOST_CHAINS = 10000;

std::optional<std::uint32_t> addressIn(const std::string& text) {
  in_addr address{};
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1 ? std::optional(ntohl(address.s_addr))
                                                           : std::nullopt;
}

std::string dotted(std::uint32_t host) {
  const in_addr address{.s_addr = htonl(host)};
  std::array<char, INET_ADDRSTRLEN> text{};
  ::inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data();
}

/// A value as a number where it can be compared as one; an IPv4 address, too.
std::optional<std::uint64_t> numberIn(const Json& value) {
  if (value.is_number_unsigned()) {
    return value.get<std::uint64_t>();
  }
  return value.is_string() ? addressIn(value.get<std::string>()) : std::nullopt;
}

bool isOfAnotherProtocol(const Json& left) {
  static const std::set<std::string> OURS{"ip", "udp", "th", "ether", ""};
  const Json* const payload = memberOf(left, "payload");
  return payload != nullptr && !OURS.contains(textIn(*payload, "protocol"));
}

/// Whether the statement is one that lets only some datagrams go on, by what is not known.
bool dependsOnMore(const std::string& kind) {
  static const std::set<std::string> KINDS{"limit", "quota",    "ct count",
                                           "xt",    "synproxy", "tproxy"};
  return KINDS.contains(kind);
}

}  // namespace

/// Chains call one another in no circle, which nftables does not take; but the rules of another
/// origin might, and chains that are called from everywhere may be walked many times.
FirewallEnds FirewallWalk::_walk(const Name& name, int depth) {
  const auto chain = _rules.chains.find(name);
  if (chain == _rules.chains.end() || depth > DEEPEST || ++_walked > MOST_CHAINS) {
    return {.accept = true, .drop = true, .goesOn = true};
  }
  FirewallEnds ends;
  for (const Json& rule : chain->second.rules) {
    const Json* const statements = memberOf(rule, "expr");
    if (statements != nullptr && _walkRule(name, *statements, depth, ends)) {
      return ends;
    }
  }
  ends.goesOn = true;
  return ends;
}

bool FirewallWalk::_walkRule(const Name& name, const Json& statements, int depth,
                             FirewallEnds& ends) {
  Truth applies = Truth::yes;
  for (const Json& statement : statements) {
    if (!statement.is_object() || statement.empty()) {
      continue;
    }
    const std::string kind = statement.begin().key();
    const Json& content = statement.begin().value();
    if (kind == "match") {
      applies = std::min(applies, _matches(name, content));
    } else if (dependsOnMore(kind)) {
      applies = std::min(applies, Truth::maybe);
      // Those of iptables may be verdicts, too.
      const bool mayBeVerdict = kind == "xt" && textIn(content, "type") != "match";
      ends.add(mayBeVerdict ? FirewallEnds::acceptOrDrop() : FirewallEnds());
    } else if (kind == "vmap" ? _walkMap(name, content, depth, applies, ends)
                              : _take(name, kind, content, depth, applies, ends)) {
      return true;
    }
    if (applies == Truth::no) {
      return false;
    }
  }
  return false;
}

bool FirewallWalk::_take(const Name& name, const std::string& kind, const Json& content, int depth,
                         Truth applies, FirewallEnds& ends) {
  if (applies == Truth::no) {
    return false;
  }
  const bool forSure = applies == Truth::yes;
  if (kind == "jump" || kind == "goto") {
    FirewallEnds called = _walk({name[0], name[1], textIn(content, "target")}, depth + 1);
    const bool comesBack = called.goesOn && kind == "jump";
    called.goesOn = called.goesOn && kind == "goto";
    ends.add(called);
    return forSure && !comesBack;
  }
  if (kind == "accept") {
    ends.accept = true;
  } else if (kind == "drop" || kind == "reject") {
    ends.drop = true;
  } else if (kind == "return") {
    ends.goesOn = true;
  } else if (kind == "queue") {
    ends.add(FirewallEnds::acceptOrDrop());
  } else {
    return false;
  }
  return forSure;
}

/// The verdicts of the values that the key may have.
bool FirewallWalk::_walkMap(const Name& name, const Json& map, int depth, Truth applies,
                            FirewallEnds& ends) {
  const Json* const key = memberOf(map, "key");
  const Json* const data = memberOf(map, "data");
  const Json* const entries = data != nullptr ? memberOf(*data, "set") : nullptr;
  if (key == nullptr || entries == nullptr || !entries->is_array()) {
    ends.add(FirewallEnds::acceptOrDrop());
    return false;
  }
  for (const Json& entry : *entries) {
    if (!entry.is_array() || entry.size() != 2 || !entry[1].is_object() || entry[1].empty()) {
      ends.add(FirewallEnds::acceptOrDrop());
      continue;
    }
    const Truth here = std::min(applies, _compare(name, *key, entry[0]));
    if (_take(name, entry[1].begin().key(), entry[1].begin().value(), depth, here, ends)) {
      return true;
    }
  }
  return false;
}

FirewallWalk::Truth FirewallWalk::_matches(const Name& name, const Json& match) const {
  const Json* const left = memberOf(match, "left");
  const Json* const right = memberOf(match, "right");
  const std::string operation = textIn(match, "op");
  if (left == nullptr || right == nullptr) {
    return Truth::maybe;
  }
  // Whatever is compared, a part of another protocol's datagram is not there.
  if (isOfAnotherProtocol(*left)) {
    return Truth::no;
  }
  if (operation == "==" || operation == "in") {
    return _compare(name, *left, *right);
  }
  if (operation != "!=") {
    return Truth::maybe;
  }
  const Truth same = _compare(name, *left, *right);
  return same == Truth::maybe ? same : same == Truth::yes ? Truth::no : Truth::yes;
}

FirewallWalk::Truth FirewallWalk::_compare(const Name& name, const Json& left,
                                           const Json& right) const {
  const Json* const meta = memberOf(left, "meta");
  const std::string key = meta != nullptr ? textIn(*meta, "key") : "";
  if (key == "iifname" || key == "iif") {
    // Announcements come from the network, by whichever interface.
    return right == Json("lo") ? Truth::no : Truth::maybe;
  }
  return _isAmong(name, _valueOf(left), right);
}

Json FirewallWalk::_valueOf(const Json& left) const {
  if (const Json* const meta = memberOf(left, "meta")) {
    return _meta(textIn(*meta, "key"));
  }
  if (const Json* const tracking = memberOf(left, "ct")) {
    return textIn(*tracking, "key") == "state" ? Json("new") : Json();
  }
  if (const Json* const payload = memberOf(left, "payload")) {
    return _payload(textIn(*payload, "protocol"), textIn(*payload, "field"));
  }
  if (const Json* const routing = memberOf(left, "fib")) {
    const Json* const flags = memberOf(*routing, "flags");
    const bool isKind = textIn(*routing, "result") == "type" && flags != nullptr &&
                        (*flags == Json("daddr") || *flags == Json::array({"daddr"}));
    return isKind ? Json(_packet.group ? "multicast" : "local") : Json();
  }
  return {};
}

Json FirewallWalk::_meta(const std::string& key) const {
  if (key == "l4proto") {
    return "udp";
  }
  if (key == "protocol") {
    return "ip";
  }
  if (key == "nfproto") {
    return "ipv4";
  }
  return key == "pkttype" ? Json(_packet.group ? "multicast" : "host") : Json();
}

Json FirewallWalk::_payload(const std::string& protocol, const std::string& field) const {
  if (protocol == "ip" && field == "protocol") {
    return "udp";
  }
  if (protocol == "ip" && field == "daddr" && _packet.group) {
    return dotted(*_packet.group);
  }
  return field == "dport" ? Json(_packet.port) : Json();
}

FirewallWalk::Truth FirewallWalk::_isAmong(const Name& name, const Json& value,
                                           const Json& there) const {
  if (value.is_null()) {
    return Truth::maybe;
  }
  if (there.is_array()) {
    return _isInAny(name, value, there);
  }
  if (const Json* const set = memberOf(there, "set")) {
    return _isAmong(name, value, *set);
  }
  if (const Json* const element = memberOf(there, "elem")) {
    const Json* const inside = memberOf(*element, "val");
    return inside != nullptr ? _isAmong(name, value, *inside) : Truth::maybe;
  }
  if (const Json* const range = memberOf(there, "range")) {
    return _isInRange(value, *range);
  }
  if (const Json* const prefix = memberOf(there, "prefix")) {
    return _hasPrefix(value, *prefix);
  }
  if (there.is_string() && there.get<std::string>().starts_with('@')) {
    const auto set = _rules.sets.find({name[0], name[1], there.get<std::string>().substr(1)});
    return set == _rules.sets.end() ? Truth::maybe : _isInAny(name, value, set->second);
  }
  return _isSame(value, there);
}

FirewallWalk::Truth FirewallWalk::_isInAny(const Name& name, const Json& value,
                                           const Json& list) const {
  Truth found = Truth::no;
  for (const Json& element : list) {
    found = std::max(found, _isAmong(name, value, element));
  }
  return found;
}

FirewallWalk::Truth FirewallWalk::_isInRange(const Json& value, const Json& range) {
  const auto number = numberIn(value);
  if (!range.is_array() || range.size() != 2 || !number) {
    return Truth::maybe;
  }
  const auto from = numberIn(range[0]);
  const auto until = numberIn(range[1]);
  if (!from || !until) {
    return Truth::maybe;
  }
  return *from <= *number && *number <= *until ? Truth::yes : Truth::no;
}

FirewallWalk::Truth FirewallWalk::_hasPrefix(const Json& value, const Json& prefix) {
  constexpr std::uint64_t BITS = 32;
  const auto number = numberIn(value);
  const auto address = addressIn(textIn(prefix, "addr"));
  const Json* const length = memberOf(prefix, "len");
  if (!number || !address || length == nullptr || !length->is_number_unsigned() ||
      length->get<std::uint64_t>() > BITS) {
    return Truth::maybe;
  }
  const std::uint64_t rest = BITS - length->get<std::uint64_t>();
  return *number >> rest == std::uint64_t{*address} >> rest ? Truth::yes : Truth::no;
}

FirewallWalk::Truth FirewallWalk::_isSame(const Json& value, const Json& there) {
  if (value == Json("udp") && there.is_number()) {
    return there == Json(IPPROTO_UDP) ? Truth::yes : Truth::no;
  }
  const bool isAlike = value.type() == there.type() || (value.is_number() && there.is_number());
  return !isAlike ? Truth::maybe : value == there ? Truth::yes : Truth::no;
}

}  // namespace ravelin::check
