#include "check/linux/Firewall.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace ravelin::check {
namespace {

using Verdict = FirewallAnswer::Verdict;

const std::string GROUP = "239.255.77.1";
constexpr std::uint16_t PORT = 5077;

/// What nft prints for one chain with these rules, each a list of statements.
std::string ruleset(const std::string& rules, const std::string& policy = "accept",
                    const std::string& more = "", const std::string& hook = "input") {
  return R"({"nftables":[{"metainfo":{"json_schema_version":1}},)"
         R"({"table":{"family":"inet","name":"t","handle":1}},)"
         R"({"chain":{"family":"inet","table":"t","name":"c","type":"filter","hook":")" +
         hook + R"(","prio":0,"policy":")" + policy + R"("}})" + more + rules + "]}";
}
std::string rule(const std::string& statements, const std::string& chain = "c") {
  return R"(,{"rule":{"family":"inet","table":"t","chain":")" + chain + R"(","handle":2,"expr":[)" +
         statements + "]}}";
}
std::string match(const std::string& left, const std::string& right, const std::string& op = "==") {
  return R"({"match":{"op":")" + op + R"(","left":)" + left + R"(,"right":)" + right + "}}";
}
const std::string DROP = R"({"drop":null})";
const std::string ACCEPT = R"({"accept":null})";
const std::string UDP_PORT = R"({"payload":{"protocol":"udp","field":"dport"}})";
const std::string STATE = R"({"ct":{"key":"state"}})";

FirewallAnswer ask(const std::string& rules, const Text& group = GROUP) {
  return FirewallAnswer::about(group, PORT, FirewallRules::of(rules));
}
Verdict verdict(const std::string& rules, const Text& group = GROUP) {
  return ask(rules, group).verdict;
}
/// Of a chain that drops what matches.
Verdict ofDropping(const std::string& matches, const Text& group = GROUP) {
  return verdict(ruleset(rule(matches + "," + DROP)), group);
}

TEST(FirewallTest, WithoutAChainForWhatComesInThereIsNone) {
  EXPECT_EQ(verdict(R"({"nftables":[]})"), Verdict::none);
  EXPECT_EQ(verdict(ruleset(rule(DROP), "drop", "", "output")), Verdict::none);
}

TEST(FirewallTest, ThePolicyDecidesWhereNoRuleDoes) {
  EXPECT_EQ(verdict(ruleset("")), Verdict::accepted);
  const auto answer = ask(ruleset("", "drop"));
  EXPECT_EQ(answer.verdict, Verdict::dropped);
  EXPECT_EQ(answer.where, "inet t c");
}

TEST(FirewallTest, AUsualFirewallDropsWhatItDoesNotKnow) {
  const std::string usual =
      rule(match(STATE, R"(["established","related"])", "in") + "," + ACCEPT) +
      rule(match(STATE, R"("invalid")", "in") + "," + DROP) +
      rule(match(R"({"meta":{"key":"iifname"}})", R"("lo")") + "," + ACCEPT) +
      rule(match(R"({"payload":{"protocol":"tcp","field":"dport"}})", "22") + "," + ACCEPT) +
      rule(match(R"({"meta":{"key":"l4proto"}})", R"({"set":["icmp","ipv6-icmp"]})") + "," +
           ACCEPT);
  EXPECT_EQ(verdict(ruleset(usual, "drop")), Verdict::dropped);
  EXPECT_EQ(verdict(ruleset(usual + rule(match(UDP_PORT, "5077") + "," + ACCEPT), "drop")),
            Verdict::accepted);
}

TEST(FirewallTest, PortsAreComparedInAllTheirForms) {
  EXPECT_EQ(ofDropping(match(UDP_PORT, "5077")), Verdict::dropped);
  EXPECT_EQ(ofDropping(match(UDP_PORT, "5078")), Verdict::accepted);
  EXPECT_EQ(ofDropping(match(UDP_PORT, "5077", "!=")), Verdict::accepted);
  EXPECT_EQ(ofDropping(match(UDP_PORT, R"({"set":[1,{"range":[5000,6000]}]})")), Verdict::dropped);
  EXPECT_EQ(ofDropping(match(UDP_PORT, R"({"range":[1,1024]})")), Verdict::accepted);
  EXPECT_EQ(ofDropping(match(R"({"payload":{"protocol":"th","field":"dport"}})", "5077")),
            Verdict::dropped);
  EXPECT_EQ(ofDropping(match(R"({"payload":{"protocol":"tcp","field":"dport"}})", "5077")),
            Verdict::accepted);
  EXPECT_EQ(ofDropping(match(R"({"payload":{"protocol":"tcp","field":"dport"}})", "22", "!=")),
            Verdict::accepted);
}

TEST(FirewallTest, TheGroupIsComparedInAllItsForms) {
  const std::string left = R"({"payload":{"protocol":"ip","field":"daddr"}})";
  EXPECT_EQ(ofDropping(match(left, R"("239.255.77.1")")), Verdict::dropped);
  EXPECT_EQ(ofDropping(match(left, R"("239.255.77.2")")), Verdict::accepted);
  EXPECT_EQ(ofDropping(match(left, R"({"prefix":{"addr":"224.0.0.0","len":4}})")),
            Verdict::dropped);
  EXPECT_EQ(ofDropping(match(left, R"({"prefix":{"addr":"10.0.0.0","len":8}})")),
            Verdict::accepted);
  // The address of this machine is not known to be one or another.
  EXPECT_EQ(ofDropping(match(left, R"("10.0.0.1")"), std::nullopt), Verdict::unknown);
  const std::string kind = R"({"meta":{"key":"pkttype"}})";
  EXPECT_EQ(ofDropping(match(kind, R"("multicast")")), Verdict::dropped);
  EXPECT_EQ(ofDropping(match(kind, R"("multicast")"), std::nullopt), Verdict::accepted);
  const std::string routing = R"({"fib":{"result":"type","flags":["daddr"]}})";
  EXPECT_EQ(ofDropping(match(routing, R"("multicast")")), Verdict::dropped);
}

TEST(FirewallTest, NamedSetsAreLookedUp) {
  const std::string set =
      R"(,{"set":{"family":"inet","table":"t","name":"ports","type":"inet_service","elem":[80,)"
      R"({"elem":{"val":5077,"timeout":60}}]}})";
  EXPECT_EQ(verdict(ruleset(rule(match(UDP_PORT, R"("@ports")") + "," + DROP), "accept", set)),
            Verdict::dropped);
  EXPECT_EQ(verdict(ruleset(rule(match(UDP_PORT, R"("@others")") + "," + DROP), "accept", set)),
            Verdict::unknown);
}

TEST(FirewallTest, WhatIsNotKnownMayGoEitherWay) {
  for (const std::string& unknown :
       {match(R"({"payload":{"protocol":"ip","field":"saddr"}})", R"("10.0.0.1")"),
        match(R"({"meta":{"key":"iifname"}})", R"("eth0")"),
        match(R"({"payload":{"protocol":"udp","field":"sport"}})", "1"),
        std::string(R"({"limit":{"rate":1,"per":"second"}})"),
        std::string(R"({"xt":{"type":"match","name":"udp"}})"),
        match(R"({"something":{"new":1}})", "1")}) {
    EXPECT_EQ(ofDropping(unknown), Verdict::unknown) << unknown;
  }
}

TEST(FirewallTest, WhatIptablesMakesIsAMatchOrAVerdict) {
  const std::string match = R"({"xt":{"type":"match","name":"conntrack"}})";
  EXPECT_EQ(verdict(ruleset(rule(match + "," + ACCEPT))), Verdict::accepted);
  EXPECT_EQ(verdict(ruleset(rule(match + "," + ACCEPT), "drop")), Verdict::unknown);
  EXPECT_EQ(verdict(ruleset(rule(R"({"xt":{"type":"target","name":"MARK"}})"))), Verdict::unknown);
}

TEST(FirewallTest, ChainsAreFollowed) {
  const std::string chain = R"(,{"chain":{"family":"inet","table":"t","name":"d","handle":7}})";
  const std::string jump = R"({"jump":{"target":"d"}})";
  EXPECT_EQ(verdict(ruleset(rule(jump) + rule(DROP, "d"), "accept", chain)), Verdict::dropped);
  EXPECT_EQ(verdict(ruleset(rule(jump) + rule(R"({"return":null})", "d") + rule(DROP, "d"),
                            "accept", chain)),
            Verdict::accepted);
  EXPECT_EQ(verdict(ruleset(rule(R"({"goto":{"target":"d"}})") + rule(DROP), "accept", chain)),
            Verdict::accepted);
  EXPECT_EQ(verdict(ruleset(rule(jump), "accept")), Verdict::unknown);
  // In a circle, which nftables would not take.
  EXPECT_EQ(verdict(ruleset(rule(jump) + rule(R"({"jump":{"target":"c"}})", "d") + rule(jump, "d"),
                            "accept", chain)),
            Verdict::unknown);
}

TEST(FirewallTest, MapsOfVerdictsAreFollowed) {
  const std::string map =
      R"({"vmap":{"key":)" + STATE +
      R"(,"data":{"set":[["established",{"accept":null}],["new",{"drop":null}]]}}})";
  EXPECT_EQ(verdict(ruleset(rule(map))), Verdict::dropped);
  EXPECT_EQ(verdict(ruleset(rule(R"({"vmap":{"key":1,"data":"@map"}})"))), Verdict::unknown);
}

TEST(FirewallTest, WhatIsNoListOfRulesIsRefused) {
  for (const char* text :
       {"", "{}", "[]", "Error: cache initialization failed", "{\"nftables\":1"}) {
    EXPECT_THROW(FirewallRules::of(text), std::runtime_error) << text;
  }
}

TEST(FirewallTest, OddRulesDoNoHarm) {
  for (const char* text :
       {R"({"nftables":1})", R"({"nftables":[1,null,{"rule":1},{"chain":[]},{"set":{}}]})",
        R"({"nftables":[{"chain":{"family":"inet","table":"t","name":"c","type":"filter",)"
        R"("hook":"input"}},{"rule":{"family":"inet","table":"t","chain":"c","expr":[1,{},)"
        R"({"match":1},{"vmap":{"key":1,"data":{"set":[1,[1],[1,2]]}}},{"jump":1}]}}]})"}) {
    EXPECT_NO_THROW(static_cast<void>(ask(text))) << text;
  }
}

}  // namespace
}  // namespace ravelin::check
