#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace ravelin::platform {

/// Reads the datagrams of a non-blocking socket, several with one system call where there is such a
/// call. It keeps the room for them, which takes no memory until it is used. One thread at a time.
class DatagramReader {
 public:
  /// What does not fit is cut off.
  static constexpr std::size_t DATAGRAM_LIMIT = 65536;

  struct Datagram {
    std::span<const std::byte> data;
    std::span<const std::byte> sender;  ///< its raw socket address
  };

  DatagramReader();
  ~DatagramReader();
  DatagramReader(const DatagramReader&) = delete;
  DatagramReader& operator=(const DatagramReader&) = delete;

  /// The next datagrams, the first one first, until the next read. None, with the reason in errno,
  /// when there is none or the read fails.
  [[nodiscard]] std::span<const Datagram> read(int descriptor);

  /// Whether the last read took as many as one ever does, so that there are probably more. Where it
  /// did not, there may be more, too: the socket is readable then.
  [[nodiscard]] bool wasFilled() const;

 private:
  struct Room;
  std::unique_ptr<Room> _room;
};

}  // namespace ravelin::platform
