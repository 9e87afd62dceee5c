#include "check/ConfigurationCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/linux/CheckedFile.h"

namespace ravelin::check {
namespace {

using test::codesOf;
using test::propertyList;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string GROUP = "<string>239.255.77.1</string>";
const std::string PORT = "<integer>5077</integer>";
const std::string JOINING = "<key>JoinIGMP</key><true/>";
const std::string RATE = "<key>IGMPMembershipRefreshRate</key><integer>60</integer>";

std::string keyed(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key>" + value;
}
std::string addresses(const std::string& value) { return keyed("MulticastAddresses", value); }
std::string pair(const std::string& group, const std::string& port) {
  return "<array>" + group + port + "</array>";
}
std::string pairs(const std::string& items) { return addresses("<array>" + items + "</array>"); }

/// What is found in a file with these keys and values.
Findings found(const std::string& content) {
  const auto dictionary =
      platform::dictionaryWithContents(propertyList("<dict>" + content + "</dict>"));
  EXPECT_TRUE(dictionary) << content;
  return checkConfiguration(dictionary.value_or(platform::PropertyListDictionary()));
}

/// The one finding that is not ok.
Finding only(const std::string& content) {
  Finding odd;
  int count = 0;
  for (const Finding& finding : found(content)) {
    if (finding.level != Level::ok) {
      odd = finding;
      ++count;
    }
  }
  EXPECT_EQ(count, 1) << content;
  return odd;
}

Finding withPort(const std::string& port) {
  return only(pairs(pair(GROUP, port)) + JOINING + RATE);
}
Finding withGroup(const std::string& group) {
  return only(pairs(pair(group, PORT)) + JOINING + RATE);
}

TEST(ConfigurationCheckTest, TheUsualConfigurationIsAllRight) {
  EXPECT_THAT(codesOf(found(pairs(pair(GROUP, PORT)) + JOINING + RATE)), ElementsAre("ok server"));
}

TEST(ConfigurationCheckTest, EveryServerIsNamed) {
  const auto all =
      found(pairs(pair(GROUP, PORT) + pair("<string>239.1.2.3</string>", "<integer>1</integer>")) +
            JOINING + RATE);
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[1].sentence, "a server for group 239.1.2.3, port 1");
  EXPECT_EQ(all[1].details, (Details{{"group", "239.1.2.3"}, {"port", "1"}}));
}

TEST(ConfigurationCheckTest, APortThatIsNoneEndsTheAgent) {
  for (const auto& [port, read] : std::vector<std::pair<std::string, std::string>>{
           {"<integer>0</integer>", "0"},
           {"<integer>-1</integer>", "-1"},
           {"<integer>65536</integer>", "65536"},
           {"<integer>70000</integer>", "70000"},
           {"<string>abc</string>", "'abc', which is read as 0"},
           {"<string></string>", "'', which is read as 0"},
           {"<string>70000</string>", "'70000'"},
           {"<real>0.9</real>", "0.9, which is read as 0"},
           {"<false/>", "false, which is read as 0"},
           {"<dict/>", "a dictionary, which is read as 0"},
           {"<array/>", "an array of 0 items, which is read as 0"},
           {"<data>AAAA</data>", "neither a text nor a number, which is read as 0"}}) {
    const Finding finding = withPort(port);
    EXPECT_EQ(finding.level, Level::wrong);
    EXPECT_EQ(finding.code, "port-out-of-range");
    EXPECT_EQ(finding.sentence, "MulticastAddresses, pair 1: the port is " + read +
                                    ", and must be from 1 to 65535: the agent ends at its start");
  }
}

TEST(ConfigurationCheckTest, APortThatIsReadInAnotherWayThanItIsWritten) {
  EXPECT_EQ(withPort("<string>5077x</string>").sentence,
            "MulticastAddresses, pair 1: the port is '5077x', which is read as 5077");
  EXPECT_EQ(withPort("<real>5077.9</real>").code, "port-read-as");
  EXPECT_EQ(withPort("<true/>").sentence,
            "MulticastAddresses, pair 1: the port is true, which is read as 1");
  EXPECT_EQ(withPort("<integer>4294972373</integer>").sentence,
            "MulticastAddresses, pair 1: the port is 4294972373, which is read as 5077");
}

TEST(ConfigurationCheckTest, ALongValueIsCut) {
  EXPECT_EQ(withPort("<string>" + std::string(60000, 'x') + "</string>").details.at("value"),
            "'" + std::string(100, 'x') + "...'");
}

TEST(ConfigurationCheckTest, APortMayBeAText) {
  EXPECT_THAT(codesOf(found(pairs(pair(GROUP, "<string>5077</string>")) + JOINING + RATE)),
              ElementsAre("ok server"));
}

TEST(ConfigurationCheckTest, AGroupThatIsNone) {
  for (const char* group :
       {"<string>192.168.1.5</string>", "<string>240.0.0.1</string>", "<string>no address</string>",
        "<string></string>", "<string>239.255.77.256</string>", "<integer>5077</integer>",
        "<array/>", "<true/>"}) {
    const Finding finding = withGroup(group);
    EXPECT_EQ(finding.code, "group-not-multicast") << group;
    EXPECT_EQ(finding.level, Level::wrong);
    EXPECT_THAT(finding.sentence, HasSubstr("must be a multicast address"));
  }
  EXPECT_THAT(withGroup("<integer>5077</integer>").sentence,
              HasSubstr("the group is 5077, which is read as 0.0.19.213, and must be"));
}

TEST(ConfigurationCheckTest, AGroupThatIsReadInAnotherWayThanItIsWritten) {
  EXPECT_EQ(withGroup("<string>239.255.77</string>").sentence,
            "MulticastAddresses, pair 1: the group is '239.255.77', which is read as 239.255.0.77");
  EXPECT_EQ(withGroup("<string>239.255.077.1</string>").sentence,
            "MulticastAddresses, pair 1: the group is '239.255.077.1', which is read as "
            "239.255.63.1");
}

TEST(ConfigurationCheckTest, WithoutJoiningTheGroupDoesNotMatter) {
  const std::string off = "<key>JoinIGMP</key><false/>";
  EXPECT_THAT(codesOf(found(pairs(pair("<string>0.0.0.0</string>", PORT)) + off + RATE)),
              ElementsAre("ok server", "note join-off"));
}

TEST(ConfigurationCheckTest, APairThatIsNotNested) {
  const Finding finding = only(addresses(pair(GROUP, PORT)) + JOINING + RATE);
  EXPECT_EQ(finding.code, "pair-not-nested");
  EXPECT_EQ(finding.sentence,
            "MulticastAddresses is itself a pair, '239.255.77.1' and 5077, and must be an array of "
            "pairs, even of a single one: the agent listens nowhere");
}

TEST(ConfigurationCheckTest, AnEntryThatIsNoPairIsPassedOver) {
  for (const auto& [entry, is] : std::vector<std::pair<std::string, std::string>>{
           {"<string>239.255.77.1:5077</string>", "'239.255.77.1:5077'"},
           {"<array>" + GROUP + "</array>", "an array of 1 item"},
           {pair(GROUP, PORT + PORT), "an array of 3 items"},
           {"<dict><key>Port</key>" + PORT + "</dict>", "a dictionary"}}) {
    const auto all = found(pairs(pair(GROUP, PORT).append(entry)).append(JOINING).append(RATE));
    ASSERT_THAT(codesOf(all), ElementsAre("ok server", "wrong entry-not-a-pair"));
    EXPECT_EQ(all[1].sentence,
              "MulticastAddresses, pair 2: it is " + is +
                  ", and must be an array of two, a group and a port: it is passed "
                  "over");
  }
}

TEST(ConfigurationCheckTest, WithoutPairsTheAgentListensNowhere) {
  EXPECT_EQ(only(JOINING + RATE).code, "addresses-missing");
  EXPECT_EQ(only(pairs("") + JOINING + RATE).code, "addresses-empty");
  const Finding finding = only(addresses("<string>239.255.77.1</string>") + JOINING + RATE);
  EXPECT_EQ(
      finding.sentence,
      "MulticastAddresses is '239.255.77.1', and must be an array of pairs: the agent listens "
      "nowhere");
}

TEST(ConfigurationCheckTest, AKeyThatIsMisspelt) {
  for (const char* key : {"multicastaddresses", "MulticastAdresses", "MulticastAddress"}) {
    const auto all = found(keyed(key, "<array/>").append(JOINING).append(RATE));
    ASSERT_THAT(codesOf(all), ElementsAre("wrong key-misspelt", "wrong addresses-missing"));
    EXPECT_EQ(all[0].sentence, "there is no key '" + std::string(key) +
                                   "', so the agent ignores it; it is spelt 'MulticastAddresses'");
    EXPECT_EQ(all[0].details.at("key"), key);
  }
  const std::string servers = pairs(pair(GROUP, PORT)) + RATE;
  EXPECT_THAT(codesOf(found(servers + "<key>JoinIgmp</key><true/>")),
              ElementsAre("ok server", "wrong key-misspelt", "wrong join-missing"));
}

TEST(ConfigurationCheckTest, AKeyThatThereIsNot) {
  EXPECT_EQ(
      only(pairs(pair(GROUP, PORT)) + JOINING + RATE + "<key>Comment</key><string>x</string>").code,
      "key-unknown");
}

TEST(ConfigurationCheckTest, ATruthThatIsReadAsFalse) {
  const std::string servers = pairs(pair(GROUP, PORT)) + RATE;
  for (const char* value : {"<string>on</string>", "<string>joined</string>", "<string/>",
                            "<array/>", "<dict/>", "<data/>"}) {
    EXPECT_EQ(only(servers + "<key>JoinIGMP</key>" + value).code, "join-read-as-false") << value;
  }
  for (const char* value : {"<false/>", "<integer>0</integer>", "<string>NO</string>"}) {
    EXPECT_EQ(only(servers + "<key>JoinIGMP</key>" + value).code, "join-off") << value;
  }
  for (const char* value : {"<integer>2</integer>", "<string>YES</string>", "<string>1</string>"}) {
    EXPECT_THAT(codesOf(found(servers + "<key>JoinIGMP</key>" + value)), ElementsAre("ok server"));
  }
}

TEST(ConfigurationCheckTest, JoiningThatIsMissingMattersWhereThereIsAGroup) {
  EXPECT_EQ(only(pairs(pair(GROUP, PORT)) + RATE).level, Level::wrong);
  EXPECT_EQ(only(pairs(pair("<string>0.0.0.0</string>", PORT)) + RATE).level, Level::note);
}

TEST(ConfigurationCheckTest, TheRateOfRenewals) {
  const std::string servers = pairs(pair(GROUP, PORT)) + JOINING;
  const std::string key = "<key>IGMPMembershipRefreshRate</key>";
  EXPECT_EQ(only(servers).code, "rate-missing");
  for (const char* value : {"<integer>0</integer>", "<integer>-60</integer>", "<real>0.5</real>",
                            "<string>often</string>", "<array/>"}) {
    const Finding finding = only(servers + key + value);
    EXPECT_EQ(finding.code, "rate-too-low") << value;
    EXPECT_EQ(finding.level, Level::wrong);
  }
  EXPECT_EQ(only(servers + key + "<string>60 s</string>").sentence,
            "IGMPMembershipRefreshRate is '60 s', which is read as 60");
  EXPECT_EQ(only(servers + key + "<integer>3600</integer>").code, "rate-high");
}

}  // namespace
}  // namespace ravelin::check
