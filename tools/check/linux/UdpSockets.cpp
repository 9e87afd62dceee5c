#include "check/linux/UdpSockets.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string>

#include "check/linux/ProcFile.h"

namespace ravelin::check {

namespace {

template <class Number>
bool read(std::string_view text, Number& number, int base) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

std::optional<UdpSocket> socketIn(const std::string& line) {
  constexpr int DECIMAL = 10;
  constexpr int HEXADECIMAL = 16;
  std::istringstream words(line);
  std::string number;
  std::string local;
  std::string other;
  std::string user;
  std::string inode;
  // Number, local and remote address, state, queues, timer, retransmissions, user, timeout, inode.
  words >> number >> local >> other >> other >> other >> other >> other >> user >> other >> inode;
  const std::size_t colon = local.find(':');
  UdpSocket socket;
  if (!words || colon == std::string::npos ||
      !read(std::string_view(local).substr(colon + 1), socket.port, HEXADECIMAL) ||
      !read(user, socket.user, DECIMAL) || !read(inode, socket.inode, DECIMAL)) {
    return std::nullopt;
  }
  socket.isEverywhere = local.find_first_not_of('0') == colon;
  return socket;
}

}  // namespace

std::vector<UdpSocket> udpSocketsIn(std::string_view table) {
  std::vector<UdpSocket> sockets;
  std::istringstream lines{std::string(table)};
  for (std::string line; std::getline(lines, line);) {
    if (const auto socket = socketIn(line)) {
      sockets.push_back(*socket);
    }
  }
  return sockets;
}

std::optional<std::vector<UdpSocket>> udpSockets() {
  const Text table = contentOf("/proc/self/net/udp");
  if (!table) {
    return std::nullopt;
  }
  auto sockets = udpSocketsIn(*table);
  // Where there is no IPv6, there are none of those.
  for (const UdpSocket& wide : udpSocketsIn(contentOf("/proc/self/net/udp6").value_or(""))) {
    if (wide.isEverywhere) {
      sockets.push_back(wide);
    }
  }
  return sockets;
}

}  // namespace ravelin::check
