#include "check/linux/Memberships.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <sstream>

#include "base/Text.h"
#include "check/linux/ProcFile.h"

namespace ravelin::check {

namespace {

/// The address that stands there as a number of this machine, in hexadecimal digits.
std::string addressFrom(std::string_view digits) {
  constexpr int HEXADECIMAL = 16;
  in_addr address{};
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), address.s_addr, HEXADECIMAL);
  std::array<char, INET_ADDRSTRLEN> text{};
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
  return isNumber && ::inet_ntop(AF_INET, &address, text.data(), text.size()) != nullptr
             ? text.data()
             : "";
}

}  // namespace

Memberships membershipsIn(std::string_view table) {
  Memberships joined;
  std::string interface;
  std::istringstream lines{std::string(table)};
  std::string line;
  std::getline(lines, line);  // the heading
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string first;
    std::string second;
    words >> first >> second;
    if (!line.starts_with('\t')) {
      // A long name has its colon right behind it.
      interface = second.substr(0, second.find(':'));
    } else if (const std::string group = addressFrom(first); !group.empty()) {
      joined[interface].insert(group);
    }
  }
  return joined;
}

std::optional<Memberships> memberships() {
  const Text table = contentOf("/proc/self/net/igmp");
  return table ? std::optional(membershipsIn(*table)) : std::nullopt;
}

}  // namespace ravelin::check
