#include "platform/PropertyList.h"

#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <utility>

#include "support/TemporaryDirectory.h"

namespace ravelin::platform {
namespace {

namespace fs = std::filesystem;

using Variant = PropertyListValue::Variant;

PropertyListValue text(std::string content) { return Variant(std::move(content)); }
PropertyListValue number(std::int64_t content) { return Variant(content); }
PropertyListValue real(double content) { return Variant(content); }
PropertyListValue truth(bool content) { return Variant(content); }

constexpr std::int32_t LOWEST = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t HIGHEST = std::numeric_limits<std::int32_t>::max();
constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

// --- one value

TEST(PropertyListValueTest, AnIntegerKeepsItsLow32Bits) {
  EXPECT_EQ(number(0).intValue(), 0);
  EXPECT_EQ(number(-7).intValue(), -7);
  EXPECT_EQ(number(HIGHEST).intValue(), HIGHEST);
  EXPECT_EQ(number(LOWEST).intValue(), LOWEST);
  EXPECT_EQ(number(2'147'483'648).intValue(), LOWEST);
  EXPECT_EQ(number(0x1'0000'1F90).intValue(), 8080);
  EXPECT_EQ(number(-0x1'0000'1F90).intValue(), -8080);
}

TEST(PropertyListValueTest, ARealLosesItsFractionAndIsClamped) {
  EXPECT_EQ(real(1.9).intValue(), 1);
  EXPECT_EQ(real(-1.9).intValue(), -1);
  EXPECT_EQ(real(0.5).intValue(), 0);
  EXPECT_EQ(real(1e300).intValue(), HIGHEST);
  EXPECT_EQ(real(-1e300).intValue(), LOWEST);
  EXPECT_EQ(real(INFINITE).intValue(), HIGHEST);
  EXPECT_EQ(real(-INFINITE).intValue(), LOWEST);
  EXPECT_EQ(real(NOT_A_NUMBER).intValue(), 0);
}

TEST(PropertyListValueTest, ATextIsReadAsAnInteger) {
  EXPECT_EQ(text("8080").intValue(), 8080);
  EXPECT_EQ(text(" \t\n 8080 more").intValue(), 8080);
  EXPECT_EQ(text("+12").intValue(), 12);
  EXPECT_EQ(text("-12.9").intValue(), -12);
  EXPECT_EQ(text("0x10").intValue(), 0);
  EXPECT_EQ(text("007").intValue(), 7);
  EXPECT_EQ(text("2147483647").intValue(), HIGHEST);
  EXPECT_EQ(text("2147483648").intValue(), HIGHEST);
  EXPECT_EQ(text("-2147483648").intValue(), LOWEST);
  EXPECT_EQ(text("-2147483649").intValue(), LOWEST);
  EXPECT_EQ(text(std::string(10'000, '9')).intValue(), HIGHEST);
  EXPECT_EQ(text(std::string("-").append(10'000, '9')).intValue(), LOWEST);
  for (const char* const none : {"", " ", "-", "+", "port", "- 1", "+-1", "--1", "YES", ".5"}) {
    EXPECT_EQ(text(none).intValue(), 0) << none;
  }
}

TEST(PropertyListValueTest, TruthsAreOneAndZero) {
  EXPECT_EQ(truth(true).intValue(), 1);
  EXPECT_EQ(truth(false).intValue(), 0);
  EXPECT_EQ(truth(true).stringValue(), "1");
  EXPECT_EQ(truth(false).stringValue(), "0");
  EXPECT_TRUE(truth(true).boolValue());
  EXPECT_FALSE(truth(false).boolValue());
}

TEST(PropertyListValueTest, ANumberIsTrueUnlessItIsZero) {
  EXPECT_TRUE(number(1).boolValue());
  EXPECT_TRUE(number(-1).boolValue());
  EXPECT_TRUE(number(0x1'0000'0000).boolValue());
  EXPECT_FALSE(number(0).boolValue());
  EXPECT_TRUE(real(0.1).boolValue());
  EXPECT_FALSE(real(0.0).boolValue());
  EXPECT_FALSE(real(-0.0).boolValue());
}

TEST(PropertyListValueTest, ATextIsTrueByItsBeginning) {
  for (const char* const yes :
       {"YES", "yes", "y", "True", "t", "1", "9", "007", " \t YES", "+1", "-1", "-0Y", "10"}) {
    EXPECT_TRUE(text(yes).boolValue()) << yes;
  }
  for (const char* const no :
       {"NO", "no", "false", "", " ", "0", "000", "-0", "on", "xYES", "--1", "0 1", "- 1"}) {
    EXPECT_FALSE(text(no).boolValue()) << no;
  }
}

TEST(PropertyListValueTest, NumbersAreWrittenAsText) {
  EXPECT_EQ(text("239.0.0.1").stringValue(), "239.0.0.1");
  EXPECT_EQ(text("").stringValue(), "");
  EXPECT_EQ(number(-42).stringValue(), "-42");
  EXPECT_EQ(number(std::numeric_limits<std::int64_t>::min()).stringValue(), "-9223372036854775808");
  EXPECT_EQ(real(1.5).stringValue(), "1.5");
  EXPECT_EQ(real(3).stringValue(), "3");
  EXPECT_EQ(real(0.1).stringValue(), "0.1");
  EXPECT_EQ(real(1e100).stringValue(), "1e+100");
  EXPECT_EQ(real(-1.0 / 3 * 1e-300).stringValue(), "-3.333333333333333e-301");
  EXPECT_EQ(real(INFINITE).stringValue(), "inf");
  EXPECT_EQ(real(NOT_A_NUMBER).stringValue(), "nan");
  EXPECT_EQ(real(-NOT_A_NUMBER).stringValue(), "nan");
}

TEST(PropertyListValueTest, EverythingElseIsNothing) {
  for (const PropertyListValue& value :
       {PropertyListValue(), PropertyListValue(Variant(PropertyListArray{number(1)})),
        PropertyListValue(Variant(PropertyListDictionary{{"1", number(1)}}))}) {
    EXPECT_EQ(value.intValue(), 0);
    EXPECT_FALSE(value.boolValue());
    EXPECT_EQ(value.stringValue(), std::nullopt);
  }
}

TEST(PropertyListValueTest, OnlyAnArrayIsAnArray) {
  const PropertyListValue array = Variant(PropertyListArray{number(1), text("two")});
  ASSERT_NE(array.array(), nullptr);
  EXPECT_EQ(array.array()->size(), 2U);
  EXPECT_EQ(array.dictionary(), nullptr);
  const PropertyListValue dictionary = Variant(PropertyListDictionary{{"key", number(1)}});
  ASSERT_NE(dictionary.dictionary(), nullptr);
  EXPECT_EQ(dictionary.dictionary()->at("key").intValue(), 1);
  EXPECT_EQ(dictionary.array(), nullptr);
  EXPECT_EQ(text("x").array(), nullptr);
  EXPECT_EQ(PropertyListValue().dictionary(), nullptr);
}

// --- files

const std::string HEAD =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
const std::string TAIL = "\n</plist>\n";

std::string xml(const std::string& value) { return HEAD + value + TAIL; }

/// A dictionary whose only key "a" leads to that many arrays within each other.
std::string nested(int arrays) {
  std::string value = "<dict><key>a</key>";
  for (int level = 0; level < arrays; ++level) {
    value += "<array>";
  }
  for (int level = 0; level < arrays; ++level) {
    value += "</array>";
  }
  return value + "</dict>";
}

std::string bigEndian(std::uint64_t value, int size) {
  std::string bytes;
  for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(value >> shift & 0xFF);
  }
  return bytes;
}

/// A container of a binary property list: its marker, and references to objects.
std::string referring(std::string_view marker, std::initializer_list<std::uint64_t> objects) {
  std::string container(marker);
  for (const std::uint64_t object : objects) {
    container += bigEndian(object, 2);
  }
  return container;
}

/// A binary property list of these objects, the first being the topmost; references take 2 bytes.
std::string binaryOf(const std::vector<std::string>& objects) {
  std::string content = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bigEndian(content.size(), 4);
    content += object;
  }
  const std::size_t tableStart = content.size();
  content += table + std::string(6, '\0') + "\x04\x02";
  return content + bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(tableStart, 8);
}

class PropertyListTest : public testing::Test {
 protected:
  std::optional<PropertyListDictionary> read(const std::string& content) {
    // A new file each time: some file systems are slow at replacing one.
    fs::remove(_path);
    std::ofstream(_path, std::ios::binary) << content;
    return dictionaryWithContentsOfFile(_path);
  }

  /// The same property list in binary form, as libplist writes it.
  static std::string binary(const std::string& xmlContent) {
    plist_t root = nullptr;
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_from_xml(xmlContent.data(), static_cast<std::uint32_t>(xmlContent.size()), &root);
    plist_to_bin(root, &bytes, &length);
    std::string content(bytes, length);
    std::free(bytes);
    plist_free(root);
    return content;
  }

  const test::TemporaryDirectory _temporary;
  const std::string _path = _temporary.path() + "/Config.plist";
};

const std::string CONFIGURATION =
    "<dict>\n"
    "  <key>MulticastAddresses</key>\n"
    "  <array>\n"
    "    <array><string>239.255.0.1</string><integer>8080</integer></array>\n"
    "    <array><string>239.255.0.2</string><string>9090</string></array>\n"
    "    <!-- <array> --> <array/>\n"
    "  </array>\n"
    "  <key>JoinIGMP</key><true/>\n"
    "  <key>IGMPMembershipRefreshRate</key><real>90.75</real>\n"
    "  <key>Off</key><false/>\n"
    "  <key>Negative</key><integer>-3</integer>\n"
    "  <key>Large</key><integer>18446744073709551615</integer>\n"
    "  <key>Text &amp; more</key><string>a &lt;b&gt; \xC3\xA4</string>\n"
    "  <key>Empty</key><string></string>\n"
    "  <key>When</key><date>2011-03-04T05:06:07Z</date>\n"
    "  <key>Bytes</key><data>AAEC</data>\n"
    "  <key>Inner</key><dict><key>x</key><integer>1</integer></dict>\n"
    "</dict>";

void expectConfiguration(const std::optional<PropertyListDictionary>& found) {
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), 11U);
  const PropertyListArray* const addresses = found->at("MulticastAddresses").array();
  ASSERT_NE(addresses, nullptr);
  ASSERT_EQ(addresses->size(), 3U);
  ASSERT_EQ(addresses->at(0).array()->size(), 2U);
  EXPECT_EQ(addresses->at(0).array()->at(0).stringValue(), "239.255.0.1");
  EXPECT_EQ(addresses->at(0).array()->at(1).intValue(), 8080);
  EXPECT_EQ(addresses->at(1).array()->at(0).stringValue(), "239.255.0.2");
  EXPECT_EQ(addresses->at(1).array()->at(1).intValue(), 9090);
  EXPECT_TRUE(addresses->at(2).array()->empty());
  EXPECT_TRUE(found->at("JoinIGMP").boolValue());
  EXPECT_EQ(found->at("IGMPMembershipRefreshRate").intValue(), 90);
  EXPECT_EQ(found->at("IGMPMembershipRefreshRate").stringValue(), "90.75");
  EXPECT_FALSE(found->at("Off").boolValue());
  EXPECT_EQ(found->at("Off").stringValue(), "0");
  EXPECT_EQ(found->at("Negative").intValue(), -3);
  EXPECT_EQ(found->at("Negative").stringValue(), "-3");
  EXPECT_EQ(found->at("Large").stringValue(), "-1");
  EXPECT_EQ(found->at("Text & more").stringValue(), "a <b> \xC3\xA4");
  EXPECT_EQ(found->at("Empty").stringValue(), "");
  EXPECT_EQ(found->at("When").stringValue(), std::nullopt);
  EXPECT_EQ(found->at("Bytes").stringValue(), std::nullopt);
  ASSERT_NE(found->at("Inner").dictionary(), nullptr);
  EXPECT_EQ(found->at("Inner").dictionary()->at("x").intValue(), 1);
  EXPECT_FALSE(found->contains("Nothing"));
}

TEST_F(PropertyListTest, ReadsAnXmlFile) { expectConfiguration(read(xml(CONFIGURATION))); }

TEST_F(PropertyListTest, ReadsABinaryFile) {
  const std::string content = binary(xml(CONFIGURATION));
  ASSERT_TRUE(content.starts_with("bplist00"));
  expectConfiguration(read(content));
}

TEST_F(PropertyListTest, ReadsAFileThroughALink) {
  read(xml(CONFIGURATION));
  fs::create_symlink(_path, _temporary.path() + "/link");
  expectConfiguration(dictionaryWithContentsOfFile(_temporary.path() + "/link"));
}

TEST_F(PropertyListTest, ReadsXmlInItsOtherGuises) {
  const std::string value = "<dict><key>a</key><string><![CDATA[<b>]]></string></dict>";
  const std::vector<std::string> guises{
      xml(value), "\xEF\xBB\xBF" + xml(value), "<plist>" + value + "</plist>",
      HEAD + "<!-- <dict> -- >>> -->" + value + "</plist >",
      xml("<dict ><key >a</key ><string><![CDATA[<b>]]></string></dict >")};
  for (const std::string& content : guises) {
    const auto found = read(content);
    ASSERT_TRUE(found) << content;
    EXPECT_EQ(found->at("a").stringValue(), "<b>") << content;
  }
}

TEST_F(PropertyListTest, AnEmptyDictionaryIsADictionary) {
  for (const std::string& content :
       {xml("<dict/>"), xml("<dict></dict>"), xml("<dict />"), binary(xml("<dict/>"))}) {
    const auto found = read(content);
    ASSERT_TRUE(found) << content;
    EXPECT_TRUE(found->empty());
  }
}

TEST_F(PropertyListTest, OfTwoEqualKeysTheLastCounts) {
  const auto found =
      read(xml("<dict><key>a</key><integer>1</integer>"
               "<key>a</key><integer>2</integer></dict>"));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("a").intValue(), 2);
}

TEST_F(PropertyListTest, AUidIsNothing) {
  const auto found = read(binaryOf({referring("\xD1", {1, 2}),
                                    "\x51"
                                    "a",
                                    "\x80\x07"}));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("a").intValue(), 0);
  EXPECT_EQ(found->at("a").stringValue(), std::nullopt);
}

TEST_F(PropertyListTest, AnotherTopLevelIsNoDictionary) {
  for (const char* const value :
       {"<array/>", "<array><dict/></array>", "<string>x</string>", "<integer>1</integer>",
        "<true/>", "<date>2011-03-04T05:06:07Z</date>", "<data>AAEC</data>"}) {
    EXPECT_EQ(read(xml(value)), std::nullopt) << value;
    EXPECT_EQ(read(binary(xml(value))), std::nullopt) << value;
  }
}

TEST_F(PropertyListTest, EveryBeginningOfAnXmlFileIsNone) {
  const std::string content = HEAD + CONFIGURATION + "</plist>";
  for (std::size_t length = 0; length < content.size(); ++length) {
    EXPECT_EQ(read(content.substr(0, length)), std::nullopt) << content.substr(0, length);
  }
}

TEST_F(PropertyListTest, EveryBeginningAndEndOfABinaryFileIsNone) {
  const std::string content = binary(xml(CONFIGURATION));
  for (std::size_t length = 0; length < content.size(); ++length) {
    EXPECT_EQ(read(content.substr(0, length)), std::nullopt) << length;
    EXPECT_EQ(read(content.substr(content.size() - length)), std::nullopt) << length;
  }
}

// What a damaged file gives may be a dictionary or nothing; it must not harm the process.
TEST_F(PropertyListTest, SurvivesAnyDamagedByte) {
  const std::string whole = binary(xml(CONFIGURATION));
  const std::string asXml = xml(CONFIGURATION);
  int refused = 0;
  for (const std::string& content : {whole, asXml}) {
    for (std::size_t index = 0; index < content.size(); ++index) {
      for (const char byte : {'\0', '\xFF', '\x7F', '<', '>', '\xA1', '\xDF'}) {
        std::string damaged = content;
        damaged[index] = byte;
        refused += read(damaged) ? 0 : 1;
      }
    }
  }
  EXPECT_GT(refused, 1000);
}

TEST_F(PropertyListTest, RefusesWhatIsNoPropertyList) {
  for (const std::string& content : {std::string(),
                                     std::string("hello"),
                                     std::string("{\"a\": 1}"),
                                     std::string("{ a = 1; }"),
                                     std::string(1000, '\0'),
                                     std::string("bplist00"),
                                     std::string("bplist00") + std::string(32, '\0'),
                                     std::string("bplist00") + std::string(64, '\xFF'),
                                     std::string("<"),
                                     std::string("<>"),
                                     std::string("</>"),
                                     std::string("<!"),
                                     std::string("<!--"),
                                     std::string("<?"),
                                     HEAD,
                                     HEAD + TAIL,
                                     std::string("<plist/>"),
                                     std::string("<html><body/></html>"),
                                     xml("<dict><key>a</key></dict>"),
                                     xml("<dict><integer>1</integer></dict>"),
                                     xml("<dict><key>a</key><key>b</key></dict>"),
                                     xml("<dict><key>a</key><string>x</integer></dict>"),
                                     xml("<dict/><dict/>"),
                                     xml("<dict>"),
                                     xml("</dict>"),
                                     xml("<dict><key>a</key><array></dict>"),
                                     xml("<dict>text</dict>"),
                                     xml("<dict/>text"),
                                     xml("<dict/>") + "text",
                                     xml("<dict/>") + "<dict/>",
                                     xml("<dict><![CDATA[x]]></dict>"),
                                     xml("<dict><key>a</key><string><true/></string></dict>"),
                                     xml("<dict><key>a</key><unheard-of/></dict>"),
                                     xml("<dict a=\"/>\">")}) {
    EXPECT_EQ(read(content), std::nullopt) << content;
  }
}

TEST_F(PropertyListTest, RefusesWhatIsNoReadableFile) {
  EXPECT_EQ(dictionaryWithContentsOfFile(_path), std::nullopt);
  EXPECT_EQ(dictionaryWithContentsOfFile(_temporary.path()), std::nullopt);
  EXPECT_EQ(dictionaryWithContentsOfFile(""), std::nullopt);
  ASSERT_EQ(::mkfifo(_path.c_str(), 0600), 0);
  EXPECT_EQ(dictionaryWithContentsOfFile(_path), std::nullopt);
}

TEST_F(PropertyListTest, ReadsSixtyFourLevelsAndNoMore) {
  EXPECT_TRUE(read(xml(nested(63))));
  EXPECT_TRUE(read(binary(xml(nested(63)))));
  EXPECT_EQ(read(xml(nested(64))), std::nullopt);
  EXPECT_EQ(read(binary(xml(nested(64)))), std::nullopt);
  EXPECT_EQ(read(xml(nested(500'000))), std::nullopt);
}

TEST_F(PropertyListTest, RefusesBinaryFilesThatAreEndlessOrNearlySo) {
  const std::string entry = referring("\xD1", {1, 2});
  // An array that holds itself, a dictionary that is its own key.
  EXPECT_EQ(read(binaryOf({entry,
                           "\x51"
                           "a",
                           referring("\xA1", {2})})),
            std::nullopt);
  EXPECT_EQ(read(binaryOf({referring("\xD1", {0, 0})})), std::nullopt);
  // Thirty arrays, each of which holds the next one twice: a thousand million values.
  std::vector<std::string> doubling{entry,
                                    "\x51"
                                    "a"};
  for (std::uint64_t next = 3; next < 33; ++next) {
    doubling.push_back(referring("\xA2", {next, next}));
  }
  doubling.emplace_back("\x09");
  EXPECT_EQ(read(binaryOf(doubling)), std::nullopt);
  // Sixty thousand arrays, each of which holds the next one.
  std::vector<std::string> deep{entry,
                                "\x51"
                                "a"};
  for (std::uint64_t next = 3; next < 60'000; ++next) {
    deep.push_back(referring("\xA1", {next}));
  }
  deep.emplace_back("\x09");
  EXPECT_EQ(read(binaryOf(deep)), std::nullopt);
}

/// A dictionary whose only key is this object, and whose only value is true.
std::string withKey(const std::string& key) {
  return binaryOf({referring("\xD1", {1, 2}), key, "\x09"});
}

std::string asciiObject(const std::string& text) {
  return "\x5F\x12" + bigEndian(text.size(), 4) + text;
}

std::string utf16Object(const std::u16string& text) {
  std::string units;
  for (const char16_t unit : text) {
    units += bigEndian(unit, 2);
  }
  return "\x6F\x12" + bigEndian(text.size(), 4) + units;
}

TEST_F(PropertyListTest, RefusesBinaryKeysWithANul) {
  using namespace std::string_literals;
  for (const std::string& key : {"\0"s, "\0a"s, "a\0"s, "a\0b"s, std::string(2, '\0')}) {
    EXPECT_EQ(read(withKey(asciiObject(key))), std::nullopt) << testing::PrintToString(key);
  }
  EXPECT_EQ(read(withKey("\x51\0"s)), std::nullopt);
  for (const std::u16string& key : {u"\0"s, u"\0a"s, u"a\0"s, u"\u00E4\0b"s}) {
    EXPECT_EQ(read(withKey(utf16Object(key))), std::nullopt) << testing::PrintToString(key);
  }
  // Deeper, and as a key that is a value elsewhere.
  const std::string entry = referring("\xD1", {1, 2});
  EXPECT_EQ(
      read(binaryOf({entry,
                     "\x51"
                     "a",
                     std::string("\xD1").append(bigEndian(3, 2)) + bigEndian(1, 2), "\x51\0"s})),
      std::nullopt);
  EXPECT_EQ(read(binaryOf({std::string("\xD2").append(bigEndian(1, 2)) + bigEndian(2, 2) +
                               bigEndian(2, 2) + bigEndian(1, 2),
                           "\x51"
                           "a",
                           "\x51\0"s})),
            std::nullopt);
}

TEST_F(PropertyListTest, ReadsATextWithANul) {
  using namespace std::string_literals;
  const std::string entry = referring("\xD1", {1, 2});
  const auto found = read(binaryOf({entry,
                                    "\x51"
                                    "a",
                                    utf16Object(u"1\0b"s)}));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("a").intValue(), 1);
}

TEST_F(PropertyListTest, ReadsBinaryKeysOfAnyOtherText) {
  using namespace std::string_literals;
  const std::vector<std::pair<std::string, std::string>> keys{
      {asciiObject("a"), "a"},
      {asciiObject(""), ""},
      {"\x50", ""},
      {asciiObject(std::string(10'000, 'x')), std::string(10'000, 'x')},
      // Zeros that are halves of characters.
      {utf16Object(u"ab"), "ab"},
      {utf16Object(u"\u4100\u4200"), "\xE4\x84\x80\xE4\x88\x80"},
      {utf16Object(u"\U0001F5B4"), "\xF0\x9F\x96\xB4"}};
  for (const auto& [object, key] : keys) {
    const auto found = read(withKey(object));
    ASSERT_TRUE(found) << key;
    EXPECT_TRUE(found->contains(key)) << key;
  }
  for (const std::u16string& key : {u"\xD800"s, u"\xDC00"s, u"\xD800\xD800"s, u"a\xDC00\xD800"s}) {
    read(withKey(utf16Object(key)));  // whatever it becomes
  }
}

TEST_F(PropertyListTest, RefusesBinaryKeysThatAreNoText) {
  using namespace std::string_literals;
  for (const std::string& key :
       {"\0"s, "\x08"s, "\x09"s, "\x10\x01"s, "\x22\0\0\0\0"s, "\x33"s + std::string(8, '\0'),
        "\x41"
        "a"s,
        "\x70"s, "\x80\x01"s, "\xA0"s, "\xC0"s, "\xD0"s, "\xFF"s}) {
    EXPECT_EQ(read(withKey(key)), std::nullopt) << testing::PrintToString(key);
  }
}

TEST_F(PropertyListTest, RefusesBinaryTextsThatAreLongerThanTheFile) {
  using namespace std::string_literals;
  for (const std::string& object :
       {"\x5F\x10\xFF"s, "\x6F\x10\xFF"s, "\x4F\x10\xFF"s, "\x5F\x13\x7F"s + std::string(7, '\xFF'),
        "\x5F\x13"s + std::string(8, '\xFF'), "\x6F\x13\x80"s + std::string(7, '\0'),
        "\x5F\x5F\x5F"s, "\x5F\x14"s + std::string(16, '\0'), "\x5F\x1F"s}) {
    EXPECT_EQ(read(withKey(object)), std::nullopt) << testing::PrintToString(object);
    const std::string entry = referring("\xD1", {1, 2});
    EXPECT_EQ(read(binaryOf({entry,
                             "\x51"
                             "a",
                             object})),
              std::nullopt)
        << testing::PrintToString(object);
  }
}

// Each reference to a text is a copy of it.
TEST_F(PropertyListTest, RefusesBinaryFilesThatGrowWhenTheyAreRead) {
  for (const std::string& object :
       {asciiObject(std::string(10'000, 'x')), utf16Object(std::u16string(5'000, u'x')),
        std::string("\x4F\x12").append(bigEndian(10'000, 4)) + std::string(10'000, 'x')}) {
    const auto list = [&object](std::uint64_t references) {
      std::string array = std::string("\xAF\x12").append(bigEndian(references, 4));
      for (std::uint64_t index = 0; index < references; ++index) {
        array += bigEndian(3, 2);
      }
      return binaryOf({referring("\xD1", {1, 2}),
                       "\x51"
                       "a",
                       array, object});
    };
    EXPECT_TRUE(read(list(100)));
    EXPECT_EQ(read(list(200)), std::nullopt);
  }
}

TEST_F(PropertyListTest, ReadsOneMebibyteAndNoMore) {
  const std::string list = xml("<dict><key>a</key><true/></dict>");
  const std::string filler((std::size_t{1024} * 1024) - list.size(), ' ');
  EXPECT_TRUE(read(list + filler));
  EXPECT_EQ(read(list + filler + " "), std::nullopt);
}

TEST_F(PropertyListTest, ReadsLongXmlTextsButNotOfAnyLength) {
  const auto list = [](std::size_t entities) {
    std::string text;
    for (std::size_t index = 0; index < entities; ++index) {
      text += "&amp;";
    }
    return xml("<dict><key>a</key><string>" + text + "</string></dict>");
  };
  const auto found = read(list(13'107));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("a").stringValue(), std::string(13'107, '&'));
  EXPECT_EQ(read(list(13'108)), std::nullopt);
}

TEST_F(PropertyListTest, ReadsXmlTextsInParts) {
  const auto found =
      read(xml("<dict><key>a<!-- <b> -->b</key><string>1<![CDATA[<&amp;]]>2&amp;<!---->3</string>"
               "<key>c</key><integer>4<!-- -->2</integer></dict>"));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("ab").stringValue(), "1<&amp;2&3");
  EXPECT_EQ(found->at("c").intValue(), 42);
}

TEST_F(PropertyListTest, RefusesXmlTextsWithANul) {
  const std::string nul(1, '\0');
  EXPECT_EQ(read(xml("<dict><key>a" + nul + "b</key><true/></dict>")), std::nullopt);
  EXPECT_EQ(read(xml("<dict><key>a</key><string>" + nul + "</string></dict>")), std::nullopt);
  EXPECT_EQ(read(xml("<dict><!-- " + nul + " --></dict>")), std::nullopt);
  EXPECT_EQ(read(xml("<dict><key>a&#0;b</key><true/></dict>")), std::nullopt);
  EXPECT_EQ(read(xml("<dict><key>a&#x00;b</key><true/></dict>")), std::nullopt);
}

// For libplist, what stands between quotes ends neither a declaration nor a tag, and "<?>" is
// whole.
TEST_F(PropertyListTest, NothingIsReadThatWasNotChecked) {
  const std::string unchecked = nested(100) + "</plist>";
  const std::string hidden = "<!-- --><dict/></plist>";
  const std::vector<std::pair<std::string, std::string>> surroundings{
      {"<?x \" ?><plist><!-- \" ?><plist>", hidden},
      {"<!DOCTYPE plist \" ><plist><!-- \" ><plist>", hidden},
      {"<plist a=\"><!-- \">", hidden},
      {"<?><plist>", "<!-- ?><plist><dict/></plist><!-- -->"}};
  for (const auto& [before, after] : surroundings) {
    const auto found = read(std::string(before).append(unchecked).append(after));
    EXPECT_TRUE(found && found->empty()) << before;
  }
}

TEST_F(PropertyListTest, RefusesXmlElementsWhereTheyDoNotBelong) {
  for (const char* const value :
       {"<array><key>a</key></array>", "<key>a</key>",
        "<dict><key>a</key><plist><true/></plist></dict>", "<plist><dict/></plist>",
        "<dict><key>a</key><string><?x?></string></dict>",
        "<dict><key>a</key><string><!x></string></dict>", "<dict><key>a</key><DICT/></dict>",
        "<dict><key>a</key><di\"ct/></dict>"}) {
    EXPECT_EQ(read(xml(value)), std::nullopt) << value;
  }
}

TEST_F(PropertyListTest, ReadsManyValuesButNotAnyNumber) {
  const auto list = [](int items) {
    std::string value = "<dict><key>a</key><array>";
    for (int item = 0; item < items; ++item) {
      value += "<true/>";
    }
    return xml(value + "</array></dict>");
  };
  for (const std::string& content : {list(60'000), binary(list(60'000))}) {
    const auto found = read(content);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->at("a").array()->size(), 60'000U);
  }
  EXPECT_EQ(read(list(70'000)), std::nullopt);
  EXPECT_EQ(read(binary(list(70'000))), std::nullopt);
}

TEST_F(PropertyListTest, ReadsManyKeys) {
  std::string value = "<dict>";
  for (int key = 0; key < 30'000; ++key) {
    value += "<key>" + std::to_string(key) + "</key><true/>";
  }
  for (const std::string& content : {xml(value + "</dict>"), binary(xml(value + "</dict>"))}) {
    const auto found = read(content);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->size(), 30'000U);
  }
}

TEST_F(PropertyListTest, SaysNothingOnStandardError) {
  testing::internal::CaptureStderr();
  read(xml("<dict><key>a</key>"));
  read(xml("<dict><key>a</key><unheard-of/></dict>"));
  read(binary(xml(CONFIGURATION)).substr(0, 60));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace ravelin::platform
