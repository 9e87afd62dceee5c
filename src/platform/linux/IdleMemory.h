#pragma once

namespace ravelin::platform {

/// Has the process hold no page of the program and its libraries of which the file holds the same;
/// what is needed is mapped again then. Pages that differ stay, and all of them where the system
/// does not tell which do. Any thread, while no other one unloads a library.
void giveBackIdleMemory();

}  // namespace ravelin::platform
