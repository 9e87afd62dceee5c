#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace ravelin::check {

/// The rules of nftables as its program "nft" describes them.
struct FirewallRules {
  using Json = nlohmann::json;

  /// By family, table and own name.
  using Name = std::vector<std::string>;

  struct Chain {
    Json description;
    std::vector<Json> rules;
  };

  std::map<Name, Chain> chains;
  std::map<Name, Json> sets;  ///< the elements of each

  /// Reads what "nft -j list ruleset" prints. Throws std::runtime_error for anything else.
  static FirewallRules of(std::string_view ruleset);
};

/// The member of an object; null where there is none, and for what is no object.
[[nodiscard]] const FirewallRules::Json* memberOf(const FirewallRules::Json& object,
                                                  const char* name);

/// The same for a text; empty for anything else.
[[nodiscard]] std::string textIn(const FirewallRules::Json& object, const char* name);

}  // namespace ravelin::check
