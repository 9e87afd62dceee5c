#include "platform/Clock.h"

#include "platform/Service.h"

namespace ravelin::platform {

namespace {

class LinuxClock final : public Clock {
 public:
  Date now() override { return std::chrono::system_clock::now(); }
};

}  // namespace

template <>
Clock& native<Clock>() {
  static auto& instance = *new LinuxClock;
  return instance;
}

}  // namespace ravelin::platform
