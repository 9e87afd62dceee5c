#pragma once

namespace ravelin::platform {

/// Opens a UDP/IPv4 socket that no child process inherits, at no instant. -1, with the reason in
/// errno, when the system refuses. Any thread.
[[nodiscard]] int openDatagramSocket();

}  // namespace ravelin::platform
