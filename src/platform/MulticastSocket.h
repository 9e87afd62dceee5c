#pragma once

namespace ravelin::platform {

/// Has the socket hear only the multicast groups that it has joined itself, where the system would
/// otherwise give it those that other sockets joined too. A refusal leaves the socket as it is.
void hearOnlyJoinedGroups(int descriptor);

}  // namespace ravelin::platform
