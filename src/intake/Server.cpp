#include "intake/Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/InternetAddress.h"
#include "base/Precondition.h"
#include "core/Logger.h"
#include "intake/SenderAddress.h"
#include "platform/DatagramSocket.h"
#include "platform/MulticastSocket.h"
#include "platform/RunLoop.h"

namespace ravelin {

using platform::DatagramReader;
using platform::RunLoop;
using platform::RunLoopSocket;

namespace {

constexpr std::size_t HOST_LIMIT = 1025;
constexpr std::size_t SERVICE_LIMIT = 32;

in_addr_t addressOf(const Text& text) {
  return text ? ::inet_addr(text->c_str()) : htonl(INADDR_ANY);
}

const sockaddr* asSocketAddress(const void* bytes) { return static_cast<const sockaddr*>(bytes); }

void logFailedRead() { Logger::logPeerMessage("Server could not read data", LogTypeError); }

/// 0, or the error number.
int makeNonBlocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == -1 ? errno : 0;
}

int bindTo(int descriptor, const Text& address, unsigned long port) {
  const sockaddr_in local =
      internetAddress(addressOf(address), htons(static_cast<std::uint16_t>(port)));
  // A limited broadcast address can be bound on some systems; here it only ever means a text that
  // is no address.
  if (local.sin_addr.s_addr == INADDR_NONE) {
    return EADDRNOTAVAIL;
  }
  // A bad descriptor never comes this far. NOLINTNEXTLINE(clang-analyzer-unix.StdCLibraryFunctions)
  return ::bind(descriptor, asSocketAddress(&local), sizeof local) < 0 ? errno : 0;
}

/// The IPv4 address that an IPv6 one wraps, with its port.
std::optional<sockaddr_in> unwrapped(std::span<const std::byte> address) {
  sockaddr_in6 wide{};
  if (address.size() < sizeof wide) {
    return std::nullopt;
  }
  std::memcpy(&wide, address.data(), sizeof wide);
  if (wide.sin6_family != AF_INET6 ||
      !(IN6_IS_ADDR_V4MAPPED(&wide.sin6_addr) || IN6_IS_ADDR_V4COMPAT(&wide.sin6_addr))) {
    return std::nullopt;
  }
  in_addr_t wrapped = 0;
  std::memcpy(&wrapped, &wide.sin6_addr.s6_addr[12], sizeof wrapped);
  return internetAddress(wrapped, wide.sin6_port);
}

}  // namespace

Server::~Server() { stop(); }

void Server::startOnPort(std::int32_t port) { startOnAddress(std::nullopt, port); }

void Server::startOnAddress(const Text& address, std::int32_t andPort) {
  static constexpr const char* OPERATION = "Server::startOnAddress(address, andPort)";
  precondition(1 <= andPort && andPort <= 65535, OPERATION, "1 <= andPort && andPort <= 65535");
  precondition(_port == 0, OPERATION, "port == 0");
  const auto port = static_cast<unsigned long>(andPort);
  int error = 0;
  if (_setupSocketListeningOnAddress(address, port, &error)) {
    _port = port;
    _multicastSourceAddresses.emplace();
    Logger::logMessage("Server has been started!", LogTypeInfo);
  } else {
    stop();
  }
}

bool Server::_setupSocketListeningOnAddress(const Text& address, unsigned long andPort,
                                            int* error) {
  static constexpr const char* OPERATION =
      "Server::_setupSocketListeningOnAddress(address, andPort, error)";
  precondition(andPort < 65536, OPERATION, "andPort < 65536");
  precondition(cfSocket() == nullptr, OPERATION, "cfSocket == null");

  int failure = 0;
  const int descriptor = platform::openDatagramSocket();
  if (descriptor < 0) {
    failure = errno;
  }
  if (failure == 0) {
    const int on = 1;
    // Some systems share a port between users only with this option. The server works without it,
    // too, so its failure does not count.
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    failure = ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
  }
  if (failure == 0) {
    failure = bindTo(descriptor, address, andPort);
  }
  if (failure == 0) {
    failure = makeNonBlocking(descriptor);
  }
  if (failure == 0) {
    platform::hearOnlyJoinedGroups(descriptor);
    _reader = std::make_shared<DatagramReader>();
    setCfSocket(new RunLoopSocket(descriptor, [this](const RunLoopSocket& socket) {
      return SocketReadCallback(socket, *this);
    }));
    const bool added = cfSocket()->addTo(RunLoop::current());
    precondition(added, OPERATION, "source != null");
    return true;
  }

  if (descriptor >= 0) {
    const int closed = ::close(descriptor);
    precondition(closed == 0, OPERATION, "close(descriptor) == 0");
  }
  precondition((failure == 0) == (cfSocket() != nullptr), OPERATION,
               "(error == 0) == (cfSocket != null)");
  if (error != nullptr) {
    *error = failure;
    Logger::logMessage(
        "Server socket cannot be created. Reason: " + std::generic_category().message(failure),
        LogTypeError);
  }
  return false;
}

void Server::stop() {
  _port = 0;
  _loudSenders.forget();
  if (RunLoopSocket* socket = _cfSocket.exchange(nullptr); socket != nullptr) {
    socket->invalidate();
    delete socket;
    _reader.reset();
  }
  Logger::logMessage("Server has been stopped!", LogTypeInfo);
}

bool Server::SocketReadCallback(const RunLoopSocket& socket, Server& server) {
  precondition(&socket == server.cfSocket(), "Server::SocketReadCallback(socket, server)",
               "socket == server.cfSocket");
  return server._readData();
}

bool Server::_readData() {
  const int descriptor = cfSocket()->native();
  precondition(descriptor >= 0, "Server::_readData()", "native(cfSocket) >= 0");

  const std::shared_ptr<DatagramReader> reader = _reader;
  const auto datagrams = reader->read(descriptor);
  if (datagrams.empty()) {
    const bool nothingThere = errno == EAGAIN || errno == EWOULDBLOCK;
    if (!nothingThere || !cfSocket()->isFurtherRead()) {
      logFailedRead();
    }
    return false;
  }
  for (const DatagramReader::Datagram& datagram : datagrams) {
    if (datagram.data.empty()) {
      logFailedRead();
      continue;
    }
    _loudSenders.heard(senderIn(datagram.sender), descriptor);
    if (_delegate) {
      const std::shared_ptr<ServerDelegate> delegate = _delegate;
      delegate->server(*this, datagram.data, datagram.sender);
      // A server that has been stopped, or is no more, has let go of it. What has been read from
      // its socket is dropped like what still waits there.
      if (reader.use_count() == 1) {
        return false;
      }
    }
  }
  return reader->wasFilled();
}

void Server::_sendData(std::optional<std::span<const std::byte>> data,
                       std::optional<std::span<const std::byte>> toAddress) const {
  static constexpr const char* OPERATION = "Server::_sendData(data, toAddress)";
  precondition(data.has_value(), OPERATION, "data != null");
  precondition(!toAddress || toAddress->size() <= sizeof(sockaddr_storage), OPERATION,
               "toAddress == null || size(toAddress) <= 128");
  const int descriptor = cfSocket() != nullptr ? cfSocket()->native() : -1;
  precondition(descriptor >= 0, OPERATION, "native(cfSocket) >= 0");

  errno = 0;
  const ssize_t sent = ::sendto(descriptor, data->data(), data->size(), 0,
                                toAddress ? asSocketAddress(toAddress->data()) : nullptr,
                                toAddress ? static_cast<socklen_t>(toAddress->size()) : 0);
  if (sent > 0) {
    precondition(static_cast<std::size_t>(sent) == data->size(), OPERATION, "sent == size(data)");
    Logger::logMessage("Server has sent data", LogTypeInfo);
  } else if (sent < 0 && errno == 0) {
    Logger::logMessage("Server has sent data", LogTypeInfo);
  } else {
    Logger::logMessage("Server cannot send data!", LogTypeError);
  }
}

Text Server::displayAddressForAddress(std::optional<std::span<const std::byte>> address) {
  if (!address) {
    return std::nullopt;
  }
  const auto narrow = unwrapped(*address);
  const std::span<const std::byte> shownAddress =
      narrow ? std::as_bytes(std::span(&*narrow, 1)) : *address;
  // getnameinfo() takes only an aligned address.
  sockaddr_storage aligned{};
  if (shownAddress.size() > sizeof aligned) {
    return std::nullopt;
  }
  std::memcpy(&aligned, shownAddress.data(), shownAddress.size());
  std::array<char, HOST_LIMIT> host{};
  std::array<char, SERVICE_LIMIT> service{};
  if (::getnameinfo(asSocketAddress(&aligned), static_cast<socklen_t>(shownAddress.size()),
                    host.data(), host.size(), service.data(), service.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return std::nullopt;
  }
  return std::string(host.data()) + ":" + service.data();
}

bool Server::_changeMembership(int option, const std::string& group,
                               const Text& sourceAddress) const {
  const int descriptor = cfSocket() != nullptr ? cfSocket()->native() : -1;
  if (descriptor == -1) {
    return false;
  }
  ip_mreq request{};
  request.imr_multiaddr.s_addr = ::inet_addr(group.c_str());
  request.imr_interface.s_addr = addressOf(sourceAddress);
  return ::setsockopt(descriptor, IPPROTO_IP, option, &request, sizeof request) == 0;
}

void Server::joinMulticastGroup(const std::string& group) {
  joinMulticastGroup(group, std::nullopt);
}

void Server::joinMulticastGroup(const std::string& group, const Text& withSourceAddress) {
  if (!_changeMembership(IP_ADD_MEMBERSHIP, group, withSourceAddress)) {
    Logger::logMessage(
        "Server cannot join multicast group " + group + " at port " + std::to_string(_port),
        LogTypeError);
    return;
  }
  _multicastGroup = group;
  if (withSourceAddress) {
    _multicastSourceAddresses->push_back(*withSourceAddress);
  }
}

void Server::dropMulticastGroup(const std::string& group, const Text& withSourceAddress) {
  if (!_changeMembership(IP_DROP_MEMBERSHIP, group, withSourceAddress)) {
    Logger::logMessage("Server cannot drop multicast group " + group + " (source addr " +
                           textOrNull(withSourceAddress) + ") at port " + std::to_string(_port),
                       LogTypeError);
    return;
  }
  if (!withSourceAddress) {
    return;
  }
  auto& addresses = *_multicastSourceAddresses;
  for (std::size_t index = addresses.size(); index-- > 0;) {
    if (addresses[index] == *withSourceAddress) {
      addresses.erase(addresses.begin() + static_cast<std::ptrdiff_t>(index));
      return;
    }
  }
}

bool Server::hasJoinedMulticastGroup(const std::string& group,
                                     const std::string& withSourceAddress) const {
  if (_multicastGroup != group || !_multicastSourceAddresses) {
    return false;
  }
  for (const std::string& address : *_multicastSourceAddresses) {
    if (address == withSourceAddress) {
      return true;
    }
  }
  return false;
}

}  // namespace ravelin
