#include "platform/SessionActivityWatch.h"

#import <AppKit/AppKit.h>

#include <memory>
#include <utility>

#include "base/Precondition.h"
#include "platform/Notices.h"
#include "platform/RunLoop.h"

namespace ravelin::platform {

using SessionNotices = Notices<SessionNotification>;

}  // namespace ravelin::platform

/// Hands the workspace's notifications to the notices, which are not its own.
@interface RavelinDiskSessionObserver : NSObject {
  ravelin::platform::SessionNotices* _notices;
}
- (instancetype)initWithNotices:(ravelin::platform::SessionNotices*)notices;
- (void)fastUserSwitch:(NSNotification*)notification;
@end

@implementation RavelinDiskSessionObserver

- (instancetype)initWithNotices:(ravelin::platform::SessionNotices*)notices {
  self = [super init];
  if (self != nil) {
    _notices = notices;
  }
  return self;
}

- (void)fastUserSwitch:(NSNotification*)notification {
  using enum ravelin::platform::SessionNotification;
  const bool hasResigned =
      [[notification name] isEqualToString:NSWorkspaceSessionDidResignActiveNotification];
  _notices->tell(hasResigned ? didResignActive : didBecomeActive);
}

@end

namespace ravelin::platform {

namespace {

NSNotificationCenter* center() { return [[NSWorkspace sharedWorkspace] notificationCenter]; }

class WorkspaceSessionWatch final : public SessionActivityWatch {
 public:
  WorkspaceSessionWatch(RunLoop& loop, SessionNotices::Receiver notify)
      : _notices(loop, std::move(notify)),
        _observer([[RavelinDiskSessionObserver alloc] initWithNotices:&_notices]) {
    _observe(NSWorkspaceSessionDidBecomeActiveNotification);
    _observe(NSWorkspaceSessionDidResignActiveNotification);
  }
  ~WorkspaceSessionWatch() override {
    @autoreleasepool {
      [center() removeObserver:_observer];
      [_observer release];
    }
  }
  WorkspaceSessionWatch(const WorkspaceSessionWatch&) = delete;
  WorkspaceSessionWatch& operator=(const WorkspaceSessionWatch&) = delete;

 private:
  void _observe(NSNotificationName name) {
    [center() addObserver:_observer selector:@selector(fastUserSwitch:) name:name object:nil];
  }

  SessionNotices _notices;
  RavelinDiskSessionObserver* _observer;
};

}  // namespace

std::unique_ptr<SessionActivityWatch> SessionActivityWatch::start(
    RunLoop& loop, std::function<void(SessionNotification)> notify) {
  precondition(loop.isCurrent() && &loop == &RunLoop::main(), "SessionActivityWatch::start",
               "the thread is the main thread");
  @autoreleasepool {
    return std::make_unique<WorkspaceSessionWatch>(loop, std::move(notify));
  }
}

}  // namespace ravelin::platform
