#include "platform/SystemVersion.h"

#include "platform/Service.h"

namespace ravelin::platform {

namespace {

class LinuxSystemVersion final : public SystemVersion {
 public:
  std::int32_t gestaltSystemVersion() override {
    // In this version shortcut files are removed directly, as on Linux.
    constexpr std::int32_t DIRECT_REMOVAL = 0x1060;
    return DIRECT_REMOVAL;
  }
};

}  // namespace

template <>
SystemVersion& native<SystemVersion>() {
  static auto& instance = *new LinuxSystemVersion;
  return instance;
}

}  // namespace ravelin::platform
