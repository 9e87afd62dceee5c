#include "base/Blanks.h"

#include <algorithm>
#include <array>

namespace ravelin {

namespace {

using namespace std::string_view_literals;

constexpr std::array BLANKS{
    "\t"sv,           "\n"sv,           "\v"sv,           "\f"sv, "\r"sv, " "sv,
    "\xC2\x85"sv,     "\xC2\xA0"sv,                        // next line, no-break space
    "\xE1\x9A\x80"sv,                                      // U+1680
    "\xE2\x80\x80"sv, "\xE2\x80\x81"sv, "\xE2\x80\x82"sv,  // U+2000 to U+200A
    "\xE2\x80\x83"sv, "\xE2\x80\x84"sv, "\xE2\x80\x85"sv,  //
    "\xE2\x80\x86"sv, "\xE2\x80\x87"sv, "\xE2\x80\x88"sv,  //
    "\xE2\x80\x89"sv, "\xE2\x80\x8A"sv,                    //
    "\xE2\x80\xA8"sv, "\xE2\x80\xA9"sv,                    // line and paragraph separator
    "\xE2\x80\xAF"sv, "\xE2\x81\x9F"sv, "\xE3\x80\x80"sv,  // U+202F, U+205F, U+3000
};

}  // namespace

std::string_view withoutLeadingBlanks(std::string_view text) {
  while (true) {
    const auto* const blank = std::ranges::find_if(
        BLANKS, [text](std::string_view candidate) { return text.starts_with(candidate); });
    if (blank == BLANKS.end()) {
      return text;
    }
    text.remove_prefix(blank->size());
  }
}

}  // namespace ravelin
