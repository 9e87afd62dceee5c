#include "base/LogLine.h"

#include "base/Utf8.h"

namespace ravelin {

std::string cutLogLine(std::string line, std::size_t limit) {
  if (line.size() > limit) {
    line.resize(beginningOf(line, limit - LOG_LINE_CUT.size()).size());
    line += LOG_LINE_CUT;
  }
  return line;
}

}  // namespace ravelin
