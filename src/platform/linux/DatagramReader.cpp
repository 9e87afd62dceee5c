#include "platform/DatagramReader.h"

#include <sys/socket.h>

#include <array>

namespace ravelin::platform {

namespace {

/// As many as make the cost of the call small beside that of the datagrams.
constexpr std::size_t DATAGRAMS_A_CALL = 8;

}  // namespace

struct DatagramReader::Room {
  std::array<mmsghdr, DATAGRAMS_A_CALL> headers{};
  std::array<iovec, DATAGRAMS_A_CALL> places{};
  std::array<sockaddr_storage, DATAGRAMS_A_CALL> senders{};
  std::array<Datagram, DATAGRAMS_A_CALL> datagrams{};
  std::size_t count = 0;
  // Not filled beforehand.
  std::unique_ptr<std::byte[]> bytes =  // NOLINT(*-avoid-c-arrays)
      std::make_unique_for_overwrite<std::byte[]>(DATAGRAMS_A_CALL * DATAGRAM_LIMIT);  // NOLINT
};

DatagramReader::DatagramReader() : _room(std::make_unique<Room>()) {
  for (std::size_t index = 0; index < DATAGRAMS_A_CALL; ++index) {
    _room->places[index] = {.iov_base = _room->bytes.get() + index * DATAGRAM_LIMIT,
                            .iov_len = DATAGRAM_LIMIT};
    msghdr& header = _room->headers[index].msg_hdr;
    header.msg_name = &_room->senders[index];
    header.msg_iov = &_room->places[index];
    header.msg_iovlen = 1;
  }
}

DatagramReader::~DatagramReader() = default;

std::span<const DatagramReader::Datagram> DatagramReader::read(int descriptor) {
  for (mmsghdr& header : _room->headers) {
    header.msg_hdr.msg_namelen = sizeof(sockaddr_storage);
  }
  const int count =
      ::recvmmsg(descriptor, _room->headers.data(), DATAGRAMS_A_CALL, MSG_DONTWAIT, nullptr);
  _room->count = count < 0 ? 0 : static_cast<std::size_t>(count);
  for (std::size_t index = 0; index < _room->count; ++index) {
    const mmsghdr& header = _room->headers[index];
    _room->datagrams[index] = {
        .data = {_room->bytes.get() + index * DATAGRAM_LIMIT, header.msg_len},
        .sender =
            std::as_bytes(std::span(&_room->senders[index], 1)).first(header.msg_hdr.msg_namelen)};
  }
  return std::span(_room->datagrams).first(_room->count);
}

bool DatagramReader::wasFilled() const { return _room->count == DATAGRAMS_A_CALL; }

}  // namespace ravelin::platform
