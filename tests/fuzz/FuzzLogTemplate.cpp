#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/LogTemplate.h"

namespace {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ravelin::platform::expandLogTemplate;
  using ravelin::platform::LOG_TEMPLATE_LIMIT;

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
  return 0;
}
