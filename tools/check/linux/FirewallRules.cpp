#include "check/linux/FirewallRules.h"

#include <stdexcept>

namespace ravelin::check {

using Json = FirewallRules::Json;

const Json* memberOf(const Json& object, const char* name) {
  if (!object.is_object()) {
    return nullptr;
  }
  const auto found = object.find(name);
  return found != object.end() ? &*found : nullptr;
}

std::string textIn(const Json& object, const char* name) {
  const Json* const member = memberOf(object, name);
  return member != nullptr && member->is_string() ? member->get<std::string>() : "";
}

FirewallRules FirewallRules::of(std::string_view ruleset) {
  FirewallRules rules;
  const auto nameOf = [](const Json& object, const char* own) {
    return Name{textIn(object, "family"), textIn(object, "table"), textIn(object, own)};
  };
  try {
    const Json all = Json::parse(ruleset);
    for (const Json& item : all.at("nftables")) {
      if (const Json* const chain = memberOf(item, "chain")) {
        rules.chains[nameOf(*chain, "name")].description = *chain;
      } else if (const Json* const rule = memberOf(item, "rule")) {
        rules.chains[nameOf(*rule, "chain")].rules.push_back(*rule);
      } else if (const Json* const set = memberOf(item, "set")) {
        const Json* const elements = memberOf(*set, "elem");
        rules.sets[nameOf(*set, "name")] =
            elements != nullptr && elements->is_array() ? *elements : Json::array();
      }
    }
  } catch (const Json::exception& exception) {
    throw std::runtime_error(exception.what());
  }
  return rules;
}

}  // namespace ravelin::check
