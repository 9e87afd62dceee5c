#include "platform/ConsoleLog.h"

#import <Foundation/Foundation.h>

#include <string>

#include "base/LogLine.h"
#include "base/Visible.h"
#include "platform/macos/FoundationText.h"

namespace ravelin::platform {

std::size_t consoleLog(std::string_view text) {
  // Visible text is UTF-8, whatever the text was.
  const std::string line = cutLogLine(visibleLines(text));
  @autoreleasepool {
    NSLog(@"%@", stringOf(line));
  }
  return line.size();
}

}  // namespace ravelin::platform
