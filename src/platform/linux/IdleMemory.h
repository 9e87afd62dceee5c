#pragma once

namespace ravelin::platform {

/// Has the process hold no page of the program and its libraries of which the file holds the same;
/// what is needed is mapped again then. Does nothing while a debugger is attached. Any thread.
void giveBackIdleMemory();

}  // namespace ravelin::platform
