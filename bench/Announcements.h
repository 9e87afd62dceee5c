#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "disk/Disk.h"

namespace ravelin::test {
class OpenController;
}

namespace ravelin::bench {

/// The disk_status announcement of the disk with that number (below 100,000,000): 83 bytes, with a
/// uuid and a label that no other number has. No such announcement is logged.
[[nodiscard]] std::string statusAnnouncement(std::size_t number);

/// The uuid in it.
[[nodiscard]] std::string uuidOf(std::size_t number);

[[nodiscard]] std::span<const std::byte> bytesOf(std::string_view text);

/// The record that the announcement of that number is parsed to.
[[nodiscard]] DiskPtr announcedDisk(std::size_t number);

/// Has the controller mount the disks with the numbers below that one.
void mountAnnounced(test::OpenController& controller, std::size_t count);

}  // namespace ravelin::bench
