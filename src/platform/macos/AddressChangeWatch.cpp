#include "platform/AddressChangeWatch.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <array>
#include <string_view>
#include <utility>

#include "base/Precondition.h"
#include "platform/Notices.h"
#include "platform/RunLoop.h"
#include "platform/macos/CoreFoundationText.h"
#include "platform/macos/Owned.h"

namespace ravelin::platform {

namespace {

constexpr std::string_view SESSION_NAME = "RavelinDisk";
constexpr std::string_view PATTERN = "State:/Network/Interface/.*/IPv4";

/// The IPv4 keys of all interfaces in the dynamic store.
class DynamicStoreWatch final : public AddressChangeWatch {
 public:
  DynamicStoreWatch(RunLoop& loop, Changed changed) : _notices(loop, std::move(changed)) {}
  ~DynamicStoreWatch() override {
    if (_source != nullptr) {
      CFRunLoopSourceInvalidate(_source.get());
    }
  }
  DynamicStoreWatch(const DynamicStoreWatch&) = delete;
  DynamicStoreWatch& operator=(const DynamicStoreWatch&) = delete;

  /// False when the system refuses.
  bool start() {
    SCDynamicStoreContext context{};
    context.info = this;
    const auto name = cfStringOf(SESSION_NAME);
    const Owned<SCDynamicStoreRef> store(
        SCDynamicStoreCreate(kCFAllocatorDefault, name.get(), _storeChanged, &context));
    const auto pattern = cfStringOf(PATTERN);
    std::array<const void*, 1> values{pattern.get()};
    const Owned<CFArrayRef> patterns(
        CFArrayCreate(kCFAllocatorDefault, values.data(), values.size(), &kCFTypeArrayCallBacks));
    if (store == nullptr ||
        SCDynamicStoreSetNotificationKeys(store.get(), nullptr, patterns.get()) == 0) {
      return false;
    }
    // Keeps the session alive.
    _source.reset(SCDynamicStoreCreateRunLoopSource(kCFAllocatorDefault, store.get(), 0));
    if (_source == nullptr) {
      return false;
    }
    CFRunLoopAddSource(CFRunLoopGetCurrent(), _source.get(), kCFRunLoopDefaultMode);
    return true;
  }

  // The keys that tell of a change are read too late to know what was in between.
  [[nodiscard]] bool membershipsMayBeLost() override { return false; }

 private:
  static void _storeChanged(SCDynamicStoreRef /*store*/, CFArrayRef /*changedKeys*/,
                            void* info) noexcept {
    static_cast<DynamicStoreWatch*>(info)->_notices.tell();
  }

  Notices<> _notices;
  Owned<CFRunLoopSourceRef> _source;
};

}  // namespace

std::unique_ptr<AddressChangeWatch> AddressChangeWatch::start(RunLoop& loop, Changed changed,
                                                              std::string& reason) {
  precondition(loop.isCurrent(), "AddressChangeWatch::start", "the thread is the loop's own");
  auto watch = std::make_unique<DynamicStoreWatch>(loop, std::move(changed));
  if (!watch->start()) {
    reason = SCErrorString(SCError());
    return nullptr;
  }
  return watch;
}

}  // namespace ravelin::platform
