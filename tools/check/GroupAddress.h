#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <string>

#include "base/Text.h"

namespace ravelin::check {

/// The address that the agent takes the text for: it is read by the system, which understands more
/// forms than the usual one. Null for what is no address. Any thread.
inline Text addressReadFrom(const Text& text) {
  const in_addr address{.s_addr = ::inet_addr(textOrNull(text).c_str())};
  char dotted[INET_ADDRSTRLEN] = "";
  return address.s_addr == INADDR_NONE
             ? std::nullopt
             : Text(::inet_ntop(AF_INET, &address, dotted, sizeof dotted));
}

/// The group in its usual form that the agent joins for the text; null where that is no multicast
/// group, so that the system refuses. Any thread.
inline Text groupReadFrom(const Text& text) {
  const Text address = addressReadFrom(text);
  return address && IN_MULTICAST(ntohl(::inet_addr(address->c_str()))) ? address : std::nullopt;
}

/// Whether a server can have the port.
inline bool isPort(long port) { return 1 <= port && port <= 65535; }

}  // namespace ravelin::check
