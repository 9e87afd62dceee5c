#include "platform/SenderFilter.h"

#include <linux/filter.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <array>
#include <vector>

#include "base/Precondition.h"

namespace ravelin::platform {

namespace {

constexpr auto SOURCE_ADDRESS = static_cast<std::uint32_t>(SKF_NET_OFF + 12);
constexpr std::uint32_t WHOLE_DATAGRAM = UINT32_MAX;

sock_filter statement(unsigned code, std::uint32_t value) {
  return {.code = static_cast<std::uint16_t>(code), .jt = 0, .jf = 0, .k = value};
}

}  // namespace

bool dropDatagramsFrom(int descriptor, std::span<const std::uint32_t> senders) {
  precondition(senders.size() <= FILTERED_SENDERS_LIMIT, "dropDatagramsFrom(descriptor, senders)",
               "count(senders) <= FILTERED_SENDERS_LIMIT");
  if (senders.empty()) {
    const int unused = 0;
    return ::setsockopt(descriptor, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused) == 0;
  }
  std::vector<sock_filter> program{statement(BPF_LD | BPF_W | BPF_ABS, SOURCE_ADDRESS)};
  for (std::size_t index = 0; index < senders.size(); ++index) {
    sock_filter jump = statement(BPF_JMP | BPF_JEQ | BPF_K, senders[index]);
    // Over the other senders and the statement that lets the datagram in.
    jump.jt = static_cast<std::uint8_t>(senders.size() - index);
    program.push_back(jump);
  }
  program.push_back(statement(BPF_RET | BPF_K, WHOLE_DATAGRAM));
  program.push_back(statement(BPF_RET | BPF_K, 0));
  const sock_fprog filter{.len = static_cast<std::uint16_t>(program.size()),
                          .filter = program.data()};
  return ::setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0;
}

std::optional<ReceiveBuffer> receiveBufferOf(int descriptor) {
  std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
  socklen_t size = sizeof figures;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_MEMINFO, figures.data(), &size) != 0 ||
      size <= SK_MEMINFO_DROPS * sizeof figures[0]) {
    return std::nullopt;
  }
  return ReceiveBuffer{
      .dropped = figures[SK_MEMINFO_DROPS],
      .isMoreThanHalfFull = figures[SK_MEMINFO_RMEM_ALLOC] > figures[SK_MEMINFO_RCVBUF] / 2};
}

}  // namespace ravelin::platform
