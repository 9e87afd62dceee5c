#include "platform/AddressChangeWatch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/Notices.h"
#include "platform/RunLoop.h"
#include "platform/posix/Descriptor.h"

namespace ravelin::platform {

namespace {

constexpr std::size_t NOTICE_LIMIT = 16384;

/// More than the socket's buffer holds, so that all pending notices are read at once; a limit, in
/// case new ones come as fast as they are read.
constexpr int NOTICES_PER_WAKE = 4096;

/// What the notices say that have been read together.
struct Change {
  bool anyAtAll = false;
  bool anAddressWentAway = false;

  /// Something was lost, so it may have been anything.
  void takeUnknown() { anyAtAll = anAddressWentAway = true; }

  void takeMessage(std::uint16_t type) {
    if (type == RTM_NEWADDR || type == RTM_DELADDR) {
      anyAtAll = true;
      anAddressWentAway |= type == RTM_DELADDR;
    } else if (type == NLMSG_OVERRUN) {
      takeUnknown();
    }
  }

  void takeNotice(const char* notice, std::size_t size) {
    nlmsghdr header{};
    while (size >= sizeof header) {
      std::memcpy(&header, notice, sizeof header);
      if (header.nlmsg_len < sizeof header || header.nlmsg_len > size) {
        return;
      }
      takeMessage(header.nlmsg_type);
      const std::size_t step = (header.nlmsg_len + NLMSG_ALIGNTO - 1U) & ~(NLMSG_ALIGNTO - 1U);
      if (step >= size) {
        return;
      }
      notice += step;
      size -= step;
    }
  }
};

/// Reads everything that is pending.
Change drained(int descriptor) {
  Change change;
  alignas(nlmsghdr) std::array<char, NOTICE_LIMIT> buffer;  // NOLINT: filled as far as it is read
  for (int notices = 0; notices < NOTICES_PER_WAKE; ++notices) {
    sockaddr_nl sender{};
    iovec part{.iov_base = buffer.data(), .iov_len = buffer.size()};
    msghdr request{};
    request.msg_name = &sender;
    request.msg_namelen = sizeof sender;
    request.msg_iov = &part;
    request.msg_iovlen = 1;
    const ssize_t size = ::recvmsg(descriptor, &request, 0);
    if (size < 0) {
      if (errno == ENOBUFS) {
        change.takeUnknown();
        continue;
      }
      if (errno == EINTR) {
        continue;
      }
      break;
    }
    // Any process with the privilege can send here; only the kernel is believed.
    if (request.msg_namelen != sizeof sender || sender.nl_pid != 0) {
      continue;
    }
    if ((request.msg_flags & MSG_TRUNC) != 0) {
      change.takeUnknown();
    } else {
      change.takeNotice(buffer.data(), static_cast<std::size_t>(size));
    }
  }
  return change;
}

/// The IPv4 address notices of rtnetlink. A link that goes down keeps its addresses and its
/// memberships, and one that is deleted has its addresses taken away first, with a notice for each:
/// so the notices about links would tell nothing more, and they come far more often.
class NetlinkWatch final : public AddressChangeWatch {
 public:
  NetlinkWatch(RunLoop& loop, Changed changed, Descriptor socket)
      : _notices(loop, std::move(changed)),
        _socket(std::move(socket)),
        _watch(
            loop.watchReadable(_socket.number(), RunLoop::Urgency::socket, [this] { _read(); })) {}

  [[nodiscard]] bool isWatching() const { return _watch != nullptr; }

  [[nodiscard]] bool membershipsMayBeLost() override {
    _read();
    return std::exchange(_anAddressWentAway, false);
  }

 private:
  void _read() {
    const Change change = drained(_socket.number());
    _anAddressWentAway |= change.anAddressWentAway;
    if (change.anyAtAll) {
      _notices.tell();
    }
  }

  Notices<> _notices;
  bool _anAddressWentAway = false;
  Descriptor _socket;
  std::unique_ptr<RunLoop::Watch> _watch;  // goes before the descriptor
};

}  // namespace

std::unique_ptr<AddressChangeWatch> AddressChangeWatch::start(RunLoop& loop, Changed changed,
                                                              std::string& reason) {
  Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = RTMGRP_IPV4_IFADDR;
  const auto* const address = reinterpret_cast<const sockaddr*>(&local);
  if (!socket.isOpen() || ::bind(socket.number(), address, sizeof local) != 0) {
    reason = std::generic_category().message(errno);
    return nullptr;
  }
  auto watch = std::make_unique<NetlinkWatch>(loop, std::move(changed), std::move(socket));
  if (!watch->isWatching()) {
    reason = std::generic_category().message(errno);
    return nullptr;
  }
  return watch;
}

}  // namespace ravelin::platform
