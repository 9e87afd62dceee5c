#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/LogLine.h"
#include "base/LogTemplate.h"
#include "base/Utf8.h"
#include "base/Visible.h"

namespace {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ravelin;

  const std::string text(data, data + size);
  const std::string expanded = expandLogTemplate(text);
  require(expanded.size() <= LOG_TEMPLATE_LIMIT);
  require(expandLogTemplate(text) == expanded);
  require(expanded.find('\0') == std::string::npos);

  // What follows a NUL has no say, and what precedes the first percent sign stays as it is.
  const std::string_view beforeNul = std::string_view(text).substr(0, text.find('\0'));
  require(expandLogTemplate(beforeNul) == expanded);
  const std::string_view literal =
      beforeNul.substr(0, beforeNul.find('%')).substr(0, LOG_TEMPLATE_LIMIT);
  require(std::string_view(expanded).substr(0, literal.size()) == literal);
  if (beforeNul.find('%') == std::string_view::npos) {
    require(expanded.size() == literal.size());
  }

  // A text whose percent signs are doubled is data.
  std::string escaped;
  for (const char character : beforeNul) {
    escaped.append(character == '%' ? 2 : 1, character);
  }
  require(expandLogTemplate(escaped) == beforeNul.substr(0, LOG_TEMPLATE_LIMIT));

  // A line is as long as it may be, and all that there was where it is not cut.
  const std::string line = cutLogLine(expandLogTemplate(text, LOG_LINE_LIMIT + 1));
  require(line.size() <= LOG_LINE_LIMIT);
  require(expanded.size() <= LOG_LINE_LIMIT ? line == expanded : line.ends_with(LOG_LINE_CUT));

  // Shown, it holds no control character, and its further lines begin with tabs.
  const std::string shown = visibleLines(line);
  for (std::size_t at = 0; at < shown.size(); ++at) {
    const auto byte = static_cast<unsigned char>(shown[at]);
    require(byte >= 0x20 || byte == '\n' || (byte == '\t' && at > 0 && shown[at - 1] == '\n'));
    require(byte != '\n' || (at + 1 < shown.size() && shown[at + 1] == '\t'));
    require(byte != 0x7F);
  }
  require(isUtf8(shown));
  return 0;
}
