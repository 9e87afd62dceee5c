#include "ConfigurationCheck.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "GroupAddress.h"
#include "Target.h"
#include "base/AsciiCase.h"
#include "common/InQuotes.h"
#include "core/Configuration.h"

namespace ravelin::check {

using platform::PropertyListArray;
using platform::PropertyListDictionary;
using platform::PropertyListValue;

namespace {

constexpr std::array KEYS{Configuration::MULTICAST_ADDRESSES, Configuration::JOIN_IGMP,
                          Configuration::IGMP_MEMBERSHIP_REFRESH_RATE};

/// Seconds after which the first switches forget a member that they do not hear of.
constexpr std::int32_t SWITCHES_FORGET = 255;

/// The value as a person has written it.
std::string shown(const PropertyListValue& value) {
  const auto& content = value.content();
  if (const auto* const text = std::get_if<std::string>(&content)) {
    return shortInQuotes(*text);
  }
  if (const auto* const truth = std::get_if<bool>(&content)) {
    return *truth ? "true" : "false";
  }
  if (const auto* const items = value.array()) {
    return "an array of " + std::to_string(items->size()) +
           (items->size() == 1 ? " item" : " items");
  }
  if (value.dictionary() != nullptr) {
    return "a dictionary";
  }
  return value.stringValue().value_or("neither a text nor a number");
}

/// Whether the number is written as what it is read as.
bool isReadAsWritten(const PropertyListValue& value, std::int32_t number) {
  return !std::holds_alternative<bool>(value.content()) &&
         value.stringValue() == std::to_string(number);
}

std::string readAs(const PropertyListValue& value, std::int32_t number) {
  return shown(value) +
         (isReadAsWritten(value, number) ? "" : ", which is read as " + std::to_string(number));
}

Details about(std::string_view key, const PropertyListValue& value) {
  return {{"key", std::string(key)}, {"value", shown(value)}};
}

/// How many characters must be put in, taken out or replaced to make one text the other; the case
/// of letters does not count.
std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), 0U);
  for (std::size_t at = 1; at <= one.size(); ++at) {
    std::size_t diagonal = row[0];
    row[0] = at;
    for (std::size_t in = 1; in <= other.size(); ++in) {
      const bool same = equalButForCase(one.substr(at - 1, 1), other.substr(in - 1, 1));
      const std::size_t replaced = diagonal + (same ? 0U : 1U);
      diagonal = row[in];
      row[in] = std::min({replaced, row[in] + 1, row[in - 1] + 1});
    }
  }
  return row.back();
}

/// The key that was probably meant; null where it is none of them.
std::optional<std::string_view> keyMeantBy(std::string_view key) {
  constexpr std::size_t SLIP = 3;
  constexpr std::size_t LONGEST = 100;
  const auto* const meant = std::ranges::find_if(KEYS, [key](std::string_view known) {
    return key.size() <= LONGEST && distance(key, known) <= SLIP;
  });
  return meant != KEYS.end() ? std::optional(*meant) : std::nullopt;
}

Findings checkKeys(const PropertyListDictionary& dictionary) {
  Findings found;
  for (const auto& [key, value] : dictionary) {
    if (std::ranges::find(KEYS, key) != KEYS.end()) {
      continue;
    }
    const std::string sentence = std::string("there is no key ")
                                     .append(shortInQuotes(key))
                                     .append(", so the agent ignores it");
    if (const auto meant = keyMeantBy(key)) {
      found.push_back(
          wrong("key-misspelt", sentence + "; it is spelt " + inQuotes(*meant), about(key, value)));
    } else {
      found.push_back(note("key-unknown", sentence, about(key, value)));
    }
  }
  return found;
}

Findings checkPort(const std::string& pair, const PropertyListValue& value,
                   const Details& details) {
  const std::int32_t port = value.intValue();
  if (!isPort(port)) {
    return {wrong("port-out-of-range",
                  pair + "the port is " + readAs(value, port) +
                      ", and must be from 1 to 65535: the agent ends at its start",
                  details)};
  }
  if (!isReadAsWritten(value, port)) {
    return {note("port-read-as", pair + "the port is " + readAs(value, port), details)};
  }
  return {};
}

Findings checkGroup(const std::string& pair, const PropertyListValue& value, bool joins,
                    const Details& details) {
  const Text text = value.stringValue();
  const Text address = addressReadFrom(text);
  const Text group = groupReadFrom(text);
  if (!joins) {
    return {};
  }
  if (!group) {
    const std::string reading = address && address != text ? ", which is read as " + *address : "";
    return {wrong("group-not-multicast",
                  pair + "the group is " + shown(value) + reading +
                      ", and must be a multicast address (224.0.0.0 to 239.255.255.255): it cannot "
                      "be joined, and what is sent to a group is not heard",
                  details)};
  }
  if (group != text) {
    return {wrong("group-read-as",
                  pair + "the group is " + shown(value) + ", which is read as " + *group, details)};
  }
  return {};
}

Findings checkPair(std::size_t number, const PropertyListValue& value, bool joins) {
  const std::string key(Configuration::MULTICAST_ADDRESSES);
  const std::string pair = key + ", pair " + std::to_string(number) + ": ";
  Details details = about(key, value);
  details["pair"] = std::to_string(number);
  const PropertyListArray* const items = value.array();
  if (!Configuration::Entry::of(value)) {
    return {wrong("entry-not-a-pair",
                  pair + "it is " + shown(value) +
                      ", and must be an array of two, a group and a port: it is passed over",
                  details)};
  }
  details["value"] = shown(items->back());
  Findings found = checkPort(pair, items->back(), details);
  details["value"] = shown(items->front());
  for (Finding& finding : checkGroup(pair, items->front(), joins, details)) {
    found.push_back(std::move(finding));
  }
  return found;
}

/// A pair where the array of pairs should be.
bool isBarePair(const PropertyListArray& entries) {
  return entries.size() == 2 && entries[0].array() == nullptr && entries[1].array() == nullptr &&
         addressReadFrom(entries[0].stringValue()) && isPort(entries[1].intValue());
}

Findings checkAddresses(const PropertyListDictionary& dictionary, bool joins) {
  const std::string key(Configuration::MULTICAST_ADDRESSES);
  const std::string nowhere = "the agent listens nowhere";
  if (!dictionary.contains(key)) {
    return {wrong("addresses-missing", key + " is missing: " + nowhere, {{"key", key}})};
  }
  const PropertyListValue value = valueForKey(dictionary, key);
  const PropertyListArray* const entries = value.array();
  const Details details = about(key, value);
  if (entries == nullptr) {
    return {wrong("addresses-not-an-array",
                  key + " is " + shown(value) + ", and must be an array of pairs: " + nowhere,
                  details)};
  }
  if (entries->empty()) {
    return {wrong("addresses-empty", key + " is an empty array: " + nowhere, details)};
  }
  if (isBarePair(*entries)) {
    return {wrong("pair-not-nested",
                  key + " is itself a pair, " + shown((*entries)[0]) + " and " +
                      shown((*entries)[1]) +
                      ", and must be an array of pairs, even of a single one: " + nowhere,
                  details)};
  }
  Findings found;
  for (std::size_t at = 0; at < entries->size(); ++at) {
    for (Finding& finding : checkPair(at + 1, (*entries)[at], joins)) {
      found.push_back(std::move(finding));
    }
  }
  return found;
}

bool namesAGroup(const Configuration& configuration) {
  return std::ranges::any_of(
      configuration.multicastAddresses,
      [](const Configuration::Entry& entry) { return groupReadFrom(entry.group).has_value(); });
}

/// Whether the value is meant to say no.
bool saysNo(const PropertyListValue& value) {
  static constexpr std::array<std::string_view, 6> WORDS{"no", "n", "false", "f", "0", "off"};
  const Text text = value.stringValue();
  return text && std::ranges::any_of(
                     WORDS, [&](std::string_view word) { return equalButForCase(*text, word); });
}

Findings checkJoining(const PropertyListDictionary& dictionary,
                      const Configuration& configuration) {
  const std::string key(Configuration::JOIN_IGMP);
  const std::string deaf = "no group is joined, and what is sent to a group is not heard";
  if (configuration.joinIGMP) {
    return {};
  }
  const bool matters = namesAGroup(configuration);
  if (!dictionary.contains(key)) {
    return {{.level = matters ? Level::wrong : Level::note,
             .code = "join-missing",
             .sentence = key + " is missing, which means false: " + deaf,
             .details = {{"key", key}}}};
  }
  const PropertyListValue value = valueForKey(dictionary, key);
  if (!saysNo(value)) {
    return {wrong("join-read-as-false",
                  key + " is " + shown(value) + ", which is read as false: " + deaf,
                  about(key, value))};
  }
  return {note("join-off", key + " is " + shown(value) + ": " + deaf, about(key, value))};
}

Findings checkRate(const PropertyListDictionary& dictionary, const Configuration& configuration) {
  const std::string key(Configuration::IGMP_MEMBERSHIP_REFRESH_RATE);
  const PropertyListValue value = valueForKey(dictionary, key);
  const std::int32_t rate = configuration.igmpMembershipRefreshRate;
  const Level level = configuration.joinIGMP ? Level::wrong : Level::note;
  const std::string often = configuration.joinIGMP
                                ? "the memberships are renewed ten times a second"
                                : "the agent is woken ten times a second for nothing";
  if (!dictionary.contains(key)) {
    return {{.level = level,
             .code = "rate-missing",
             .sentence = key + " is missing, which means 0: " + often + "; 60 is usual",
             .details = {{"key", key}}}};
  }
  if (rate <= 0) {
    return {{.level = level,
             .code = "rate-too-low",
             .sentence = key + " is " + readAs(value, rate) + ": " + often + "; 60 is usual",
             .details = about(key, value)}};
  }
  Findings found;
  if (!isReadAsWritten(value, rate)) {
    found.push_back(note("rate-read-as", key + " is " + readAs(value, rate), about(key, value)));
  }
  if (configuration.joinIGMP && rate > SWITCHES_FORGET) {
    found.push_back(note("rate-high",
                         key + " is " + std::to_string(rate) +
                             " seconds: some switches forget a member sooner; 60 is usual",
                         about(key, value)));
  }
  return found;
}

Findings serversOf(const Configuration& configuration) {
  Findings found;
  for (const Target& target : targetsOf(configuration)) {
    found.push_back(ok(
        "server", "a server for " + target.described() + (target.group ? "" : ", without a group"),
        target.details()));
  }
  return found;
}

}  // namespace

Findings checkConfiguration(const PropertyListDictionary& dictionary) {
  const auto configuration = Configuration::of(dictionary);
  Findings found;
  for (Findings& part :
       std::array{serversOf(configuration), checkKeys(dictionary),
                  checkAddresses(dictionary, configuration.joinIGMP),
                  checkJoining(dictionary, configuration), checkRate(dictionary, configuration)}) {
    std::ranges::move(part, std::back_inserter(found));
  }
  return found;
}

}  // namespace ravelin::check
