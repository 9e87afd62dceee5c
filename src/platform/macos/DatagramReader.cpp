#include "platform/DatagramReader.h"

#include <sys/socket.h>

#include <array>

namespace ravelin::platform {

struct DatagramReader::Room {
  // Both are filled as far as there is something to read.
  std::array<std::byte, DATAGRAM_LIMIT> bytes;
  sockaddr_storage sender;
  Datagram datagram;
  bool isFilled = false;
};

DatagramReader::DatagramReader() : _room(new Room) {}

DatagramReader::~DatagramReader() = default;

// No call of this system takes several.
std::span<const DatagramReader::Datagram> DatagramReader::read(int descriptor) {
  socklen_t senderSize = sizeof _room->sender;
  const ssize_t size = ::recvfrom(descriptor, _room->bytes.data(), _room->bytes.size(), 0,
                                  reinterpret_cast<sockaddr*>(&_room->sender), &senderSize);
  _room->isFilled = size >= 0;
  if (!_room->isFilled) {
    return {};
  }
  _room->datagram = {.data = std::span(_room->bytes).first(static_cast<std::size_t>(size)),
                     .sender = std::as_bytes(std::span(&_room->sender, 1)).first(senderSize)};
  return std::span(&_room->datagram, 1);
}

bool DatagramReader::wasFilled() const { return _room->isFilled; }

}  // namespace ravelin::platform
