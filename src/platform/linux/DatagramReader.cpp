#include "platform/DatagramReader.h"

#include <sys/socket.h>

#include <array>

namespace ravelin::platform {

namespace {

/// As many as make the cost of the call small beside that of the datagrams.
constexpr std::size_t DATAGRAMS_A_CALL = 8;

/// After a datagram that was alone, so many reads take one with the plain call: its price is lower,
/// by a good part of what a datagram costs, and nearly always they come one by one.
constexpr int READS_FOR_ONE = 7;

}  // namespace

struct DatagramReader::Room {
  std::array<mmsghdr, DATAGRAMS_A_CALL> headers{};
  std::array<iovec, DATAGRAMS_A_CALL> places{};
  std::array<sockaddr_storage, DATAGRAMS_A_CALL> senders{};
  std::array<Datagram, DATAGRAMS_A_CALL> datagrams{};
  std::size_t count = 0;
  int readsForOne = 0;  // still to come
  // Not filled beforehand.
  std::unique_ptr<std::byte[]> bytes =  // NOLINT(*-avoid-c-arrays)
      std::make_unique_for_overwrite<std::byte[]>(DATAGRAMS_A_CALL * DATAGRAM_LIMIT);  // NOLINT

  void readOne(int descriptor) {
    socklen_t senderSize = sizeof senders[0];
    const ssize_t size = ::recvfrom(descriptor, bytes.get(), DATAGRAM_LIMIT, MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&senders[0]), &senderSize);
    count = 0;
    if (size >= 0) {
      add(static_cast<std::size_t>(size), senderSize);
    }
  }

  void readSeveral(int descriptor) {
    for (mmsghdr& header : headers) {
      header.msg_hdr.msg_namelen = sizeof(sockaddr_storage);
    }
    const int read =
        ::recvmmsg(descriptor, headers.data(), DATAGRAMS_A_CALL, MSG_DONTWAIT, nullptr);
    count = 0;
    while (static_cast<int>(count) < read) {
      const mmsghdr& header = headers[count];
      add(header.msg_len, header.msg_hdr.msg_namelen);
    }
  }

  /// What has been read into the next place becomes the next datagram.
  void add(std::size_t size, socklen_t senderSize) {
    datagrams[count] = {.data = {bytes.get() + count * DATAGRAM_LIMIT, size},
                        .sender = std::as_bytes(std::span(&senders[count], 1)).first(senderSize)};
    ++count;
  }
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
  if (_room->readsForOne > 0) {
    --_room->readsForOne;
    _room->readOne(descriptor);
  } else {
    _room->readSeveral(descriptor);
    _room->readsForOne = _room->count == 1 ? READS_FOR_ONE : 0;
  }
  return std::span(_room->datagrams).first(_room->count);
}

bool DatagramReader::wasFilled() const { return _room->count == DATAGRAMS_A_CALL; }

}  // namespace ravelin::platform
