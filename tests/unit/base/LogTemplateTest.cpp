#include "base/LogTemplate.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace ravelin {
namespace {

TEST(LogTemplateTest, KeepsTextWithoutPercentSign) {
  EXPECT_EQ(expandLogTemplate(""), "");
  EXPECT_EQ(expandLogTemplate("Server has been started!"), "Server has been started!");
  EXPECT_EQ(expandLogTemplate("line\nfeed\ttab \xC3\xA4 \xFF"), "line\nfeed\ttab \xC3\xA4 \xFF");
}

TEST(LogTemplateTest, WritesPercentSign) {
  EXPECT_EQ(expandLogTemplate("%%"), "%");
  EXPECT_EQ(expandLogTemplate("100%% of %%d"), "100% of %d");
  EXPECT_EQ(expandLogTemplate("%%%%%%"), "%%%");
  EXPECT_EQ(expandLogTemplate("%5%"), "%");
}

TEST(LogTemplateTest, WritesZeroForAbsentNumbers) {
  EXPECT_EQ(expandLogTemplate("%d %i %u %o %x %X %b %B %D %O %U"), "0 0 0 0 0 0 0 0 0 0 0");
  EXPECT_EQ(expandLogTemplate("%hhd %hd %ld %lld %qd %jd %zd %td"), "0 0 0 0 0 0 0 0");
  EXPECT_EQ(expandLogTemplate("%lf|%e|%g|%a|%Lf"), "0.000000|0.000000e+00|0|0x0p+0|0.000000");
  EXPECT_EQ(expandLogTemplate("%F|%E|%G|%A"), "0.000000|0.000000E+00|0|0X0P+0");
  EXPECT_EQ(expandLogTemplate("[%5b] [%-5B] [%#05b] [%.3b] [%.0B]"),
            "[    0] [0    ] [00000] [000] []");
  EXPECT_EQ(expandLogTemplate("[%+D] [%05U] [%#.0O]"), "[+0] [00000] [0]");
  EXPECT_EQ(expandLogTemplate("%p"), "0x0");
  EXPECT_EQ(expandLogTemplate("[%6p] [%-6p] [%06p]"), "[   0x0] [0x0   ] [0x0000]");
}

TEST(LogTemplateTest, WritesNullForAbsentTexts) {
  EXPECT_EQ(expandLogTemplate("%s %S %@ %ls"), "(null) (null) (null) (null)");
  EXPECT_EQ(expandLogTemplate("[%10s] [%-10@] [%.3s] [%5.2s] [%.s]"),
            "[    (null)] [(null)    ] [(nu] [   (n] []");
}

TEST(LogTemplateTest, DescribesErrorZeroWhateverHasFailedLast) {
  const std::string description = std::strerror(0);
  for (const int failed : {0, ENOENT, EACCES}) {
    errno = failed;
    EXPECT_EQ(expandLogTemplate("%m"), description);
    EXPECT_EQ(expandLogTemplate("[%.3m] [%.0m]"),
              std::string("[").append(description.substr(0, 3)).append("] []"));
    EXPECT_EQ(expandLogTemplate("%600m"), std::string(512 - description.size(), ' ') + description);
  }
}

TEST(LogTemplateTest, WritesNoCharacterButItsPadding) {
  EXPECT_EQ(expandLogTemplate("[%c] [%3c] [%-3C]"), "[] [   ] [   ]");
}

TEST(LogTemplateTest, WritesNothingForCount) { EXPECT_EQ(expandLogTemplate("a%nb%5hhnc"), "abc"); }

TEST(LogTemplateTest, TakesAsteriskAsAbsentNumber) {
  EXPECT_EQ(expandLogTemplate("[%*d] [%.*d] [%*.*s] [%.*f] [%-*s]"), "[0] [] [] [0] [(null)]");
  EXPECT_EQ(expandLogTemplate("[%*2$d] [%1$*2$.*3$f]"), "[0] [0]");
}

TEST(LogTemplateTest, AcceptsArgumentNumbers) {
  EXPECT_EQ(expandLogTemplate("%2$s %1$d %12$05d"), "(null) 0 00000");
}

TEST(LogTemplateTest, KeepsWhatIsNoConversion) {
  for (const char* text :
       {"%",          "50%",       "%5",   "%-",     "%.",           "%.3",   "%l",
        "%ll",        "%1$",       "%*",   "%*1$",   "%#0+- '5.3hh", "%y",    "%-5y",
        "%!",         "%lly",      "%0$d", "%1$2$d", "%.-5d",        "%hhhd", "%lhd",
        "%k\xC3\xA4", "%\xC3\xA4", "%\n",  "%.5.5d", "%$d",          "%1$"}) {
    EXPECT_EQ(expandLogTemplate(text), text);
  }
}

TEST(LogTemplateTest, GoesOnBehindWhatIsNoConversion) {
  EXPECT_EQ(expandLogTemplate("%y%d %-k%s %l"), "%y0 %-k(null) %l");
}

TEST(LogTemplateTest, EndsAtFirstNul) {
  EXPECT_EQ(expandLogTemplate(std::string_view("a%d\0b%d", 7)), "a0");
  EXPECT_EQ(expandLogTemplate(std::string_view("a%5\0d", 5)), "a%5");
  EXPECT_EQ(expandLogTemplate(std::string_view("\0a", 2)), "");
}

TEST(LogTemplateTest, ExpandsQuotedMessage) {
  EXPECT_EQ(expandLogTemplate("Received event message\n{\"label\":\"100%s%n %d\"}"),
            "Received event message\n{\"label\":\"100(null) 0\"}");
}

/// What the C library writes for the same conversion of an actual 0, or "(null)".
template <class Value>
std::string reference(const std::string& conversion, Value value) {
  std::array<char, 256> buffer{};
  const int length = std::snprintf(buffer.data(), buffer.size(), conversion.c_str(), value);
  return {buffer.data(), static_cast<std::size_t>(length)};
}

/// Calls the action with every combination of flags, width and precision.
template <class Action>
void forEachForm(const std::string& flags, const Action& action) {
  for (unsigned chosen = 0; chosen < (1U << flags.size()); ++chosen) {
    std::string start = "%";
    for (std::size_t flag = 0; flag < flags.size(); ++flag) {
      if ((chosen & (1U << flag)) != 0) {
        start += flags[flag];
      }
    }
    for (const char* width : {"", "1", "2", "7", "20", "100"}) {
      for (const char* precision : {"", ".", ".0", ".1", ".2", ".9", ".60"}) {
        action(start + width + precision);
      }
    }
  }
}

TEST(LogTemplateTest, WritesNumbersLikeTheCLibrary) {
  forEachForm("-+ #0'", [](const std::string& start) {
    for (const char* letter : {"d", "i", "u", "o", "x", "X"}) {
      const std::string conversion = start + letter;
      EXPECT_EQ(expandLogTemplate(conversion), reference(conversion, 0)) << conversion;
    }
    for (const char* letter : {"ld", "lu", "zx", "jo"}) {
      const std::string conversion = start + letter;
      EXPECT_EQ(expandLogTemplate(conversion), reference(conversion, std::intmax_t{0}))
          << conversion;
    }
    for (const char* letter : {"e", "E", "f", "F", "g", "G", "a", "A", "lf"}) {
      const std::string conversion = start + letter;
      EXPECT_EQ(expandLogTemplate(conversion), reference(conversion, 0.0)) << conversion;
    }
  });
}

TEST(LogTemplateTest, WritesTextsLikeTheCLibrary) {
  forEachForm("-", [](const std::string& start) {
    const std::string conversion = start + "s";
    EXPECT_EQ(expandLogTemplate(conversion), reference(conversion, "(null)")) << conversion;
  });
}

TEST(LogTemplateTest, WritesErrorTextLikeTheCLibrary) {
  forEachForm("-", [](const std::string& start) {
    const std::string conversion = start + "m";
    errno = 0;
    EXPECT_EQ(expandLogTemplate(conversion), reference(conversion, 0)) << conversion;
  });
}

TEST(LogTemplateTest, BoundsWidthAndPrecision) {
  const std::string blanks(511, ' ');
  EXPECT_EQ(expandLogTemplate("%512d"), blanks + "0");
  EXPECT_EQ(expandLogTemplate("%2000000000d"), blanks + "0");
  EXPECT_EQ(expandLogTemplate("%99999999999999999999999999999d"), blanks + "0");
  EXPECT_EQ(expandLogTemplate("%.99999999999999999999999999999d"), std::string(512, '0'));
  EXPECT_EQ(expandLogTemplate("%.2147483648f"), std::string("0.").append(512, '0'));
  EXPECT_EQ(expandLogTemplate("%99999999999999999999$d"), "0");
}

TEST(LogTemplateTest, CutsAtLimit) {
  const std::string longest(LOG_TEMPLATE_LIMIT, 'x');
  EXPECT_EQ(expandLogTemplate(longest), longest);
  EXPECT_EQ(expandLogTemplate(longest + "yz"), longest);
  EXPECT_EQ(expandLogTemplate(longest + "%d"), longest);
  const std::string allButOne(LOG_TEMPLATE_LIMIT - 1, 'x');
  EXPECT_EQ(expandLogTemplate(allButOne + "%s"), allButOne + "(");
  EXPECT_EQ(expandLogTemplate(allButOne + "%-y"), allButOne + "%");
  EXPECT_EQ(expandLogTemplate(allButOne + "%dy"), allButOne + "0");
}

TEST(LogTemplateTest, CutsAtTheLimitThatIsAskedFor) {
  EXPECT_EQ(expandLogTemplate("1234567", 4), "1234");
  EXPECT_EQ(expandLogTemplate("%512d", 4), "    ");
  EXPECT_EQ(expandLogTemplate("12%-yxx", 4), "12%-");
  EXPECT_EQ(expandLogTemplate("%%%%%%", 2), "%%");
  EXPECT_EQ(expandLogTemplate("text", 0), "");
}

TEST(LogTemplateTest, StaysBoundedForDenseTemplates) {
  std::string dense;
  while (dense.size() < 2 * LOG_TEMPLATE_LIMIT) {
    dense += "%999d";
  }
  const std::string expanded = expandLogTemplate(dense);
  EXPECT_EQ(expanded.size(), LOG_TEMPLATE_LIMIT);
  EXPECT_EQ(expanded.substr(0, 513), std::string(511, ' ').append("0 "));

  const std::string endless = std::string("%").append(4 * LOG_TEMPLATE_LIMIT, '1');
  EXPECT_EQ(expandLogTemplate(endless), endless.substr(0, LOG_TEMPLATE_LIMIT));
  std::string nothing;
  for (int count = 0; count < 100000; ++count) {
    nothing += "%n";
  }
  EXPECT_EQ(expandLogTemplate(nothing + "end"), "end");
}

}  // namespace
}  // namespace ravelin
