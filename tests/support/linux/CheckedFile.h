#pragma once

#include <string>
#include <vector>

#include "check/Finding.h"

namespace ravelin::test {

/// A property list of XML with this value at its top.
inline std::string propertyList(const std::string& value) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + value +
         "</plist>\n";
}

/// "wrong port-out-of-range" and the like, in the order of the findings.
inline std::vector<std::string> codesOf(const check::Findings& findings) {
  std::vector<std::string> codes;
  for (const check::Finding& finding : findings) {
    const char* const level = finding.level == check::Level::ok     ? "ok "
                              : finding.level == check::Level::note ? "note "
                                                                    : "wrong ";
    codes.push_back(level + finding.code);
  }
  return codes;
}

}  // namespace ravelin::test
