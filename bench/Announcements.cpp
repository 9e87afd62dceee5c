#include "Announcements.h"

#include <array>
#include <cstdio>

#include "intake/EventParser.h"
#include "support/OpenController.h"

namespace ravelin::bench {

std::string uuidOf(std::size_t number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04zX-%04zX", number >> 16U, number & 0xFFFFU);
  return text.data();
}

std::string statusAnnouncement(std::size_t number) {
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(),
                "event:disk_status;mac:02:00:00:00:00:01;ip:192.0.2.10;uuid:%s;label:%08zu",
                uuidOf(number).c_str(), number);
  return text.data();
}

std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

DiskPtr announcedDisk(std::size_t number) {
  return EventParser::parse(bytesOf(statusAnnouncement(number)));
}

void mountAnnounced(test::OpenController& controller, std::size_t count) {
  for (std::size_t number = 0; number < count; ++number) {
    controller._mountDisk(announcedDisk(number));
  }
}

}  // namespace ravelin::bench
