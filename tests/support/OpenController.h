#pragma once

#include "controller/Controller.h"

namespace ravelin::test {

/// The real controller, some of whose steps can be taken one by one, on the caller's thread: those
/// that would have to be waited for, and those that only a race of the two threads reaches.
class OpenController final : public Controller {
 public:
  using Controller::_checkUpdateTimesAndUnmountDisksIfNecessary;
  using Controller::_mountDisk;
  using Controller::_process;
  using Controller::_processNextDiskEvent;
  using Controller::_shouldDiskRemounted;
  using Controller::_unmountDisk;
  using Controller::_updateDiskUpdateTime;
};

}  // namespace ravelin::test
