#include "FakeWorkspace.h"

#import <AppKit/AppKit.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>

#include "FakeRunLoop.h"

NSNotificationName const NSWorkspaceSessionDidBecomeActiveNotification =
    @"NSWorkspaceSessionDidBecomeActiveNotification";
NSNotificationName const NSWorkspaceSessionDidResignActiveNotification =
    @"NSWorkspaceSessionDidResignActiveNotification";

namespace {

struct State {
  std::mutex mutex;
  std::vector<ravelin::fakes::FakeWorkspace::Icon> icons;
  bool loads = true;
  bool takesIcons = true;
  std::optional<std::string> raised;
  bool isActive = true;
};
State& state() {
  static auto& instance = *new State;
  return instance;
}

void reset() {
  const std::lock_guard lock(state().mutex);
  state().icons.clear();
  state().loads = true;
  state().takesIcons = true;
  state().raised.reset();
  state().isActive = true;
}

std::atomic<int> gPictures = 0;

/// By its beginning.
bool isPicture(std::string_view content) {
  using namespace std::string_view_literals;
  for (const std::string_view beginning :
       {"\x89PNG\r\n\x1A\n"sv, "\0\0\1\0"sv, "icns"sv, "\xFF\xD8\xFF"sv, "GIF8"sv}) {
    if (content.starts_with(beginning)) {
      return true;
    }
  }
  return false;
}

std::string textOf(NSString* string) { return string == nil ? "" : [string UTF8String]; }

}  // namespace

namespace ravelin::fakes {

FakeWorkspace::FakeWorkspace() {
  reset();
  [NSWorkspace sharedWorkspace];
}
FakeWorkspace::~FakeWorkspace() { reset(); }

void FakeWorkspace::refuseToLoad() {
  const std::lock_guard lock(state().mutex);
  state().loads = false;
}

std::vector<FakeWorkspace::Icon> FakeWorkspace::icons() const {
  const std::lock_guard lock(state().mutex);
  return state().icons;
}

void FakeWorkspace::refuseIcons() {
  const std::lock_guard lock(state().mutex);
  state().takesIcons = false;
}

void FakeWorkspace::raiseForIcons(const std::string& reason) {
  const std::lock_guard lock(state().mutex);
  state().raised = reason;
}

void FakeWorkspace::setSessionActive(bool active) {
  {
    const std::lock_guard lock(state().mutex);
    if (state().isActive == active) {
      return;
    }
    state().isActive = active;
  }
  postToMainLoop([active] {
    @autoreleasepool {
      NSWorkspace* const workspace = [NSWorkspace sharedWorkspace];
      [[workspace notificationCenter]
          postNotificationName:active ? NSWorkspaceSessionDidBecomeActiveNotification
                                      : NSWorkspaceSessionDidResignActiveNotification
                        object:workspace];
    }
  });
}

void FakeWorkspace::startInBackground() {
  const std::lock_guard lock(state().mutex);
  state().isActive = false;
}

int FakeWorkspace::pictures() { return gPictures; }

}  // namespace ravelin::fakes

BOOL NSApplicationLoad(void) {
  const std::lock_guard lock(state().mutex);
  return state().loads;
}

// The header of the real one shows no fields; a fake needs one, and finds it beside the object.
static NSMapTable* pathsOfPictures() {
  static NSMapTable* const paths = [[NSMapTable
      mapTableWithKeyOptions:NSPointerFunctionsOpaqueMemory | NSPointerFunctionsOpaquePersonality
                valueOptions:NSPointerFunctionsStrongMemory] retain];
  return paths;
}

@implementation NSImage

- (instancetype)init {
  self = [super init];
  ++gPictures;
  return self;
}

- (void)dealloc {
  @synchronized([NSImage class]) {
    [pathsOfPictures() removeObjectForKey:self];
  }
  --gPictures;
  [super dealloc];
}

- (instancetype)initWithContentsOfFile:(NSString*)path {
  self = [self init];
  const std::string file = textOf(path);
  std::string content;
  if (std::error_code failure; std::filesystem::is_regular_file(file, failure)) {
    std::ifstream stream(file, std::ios::binary);
    content.assign(std::istreambuf_iterator<char>(stream), {});
  }
  if (!isPicture(content)) {
    [self release];
    return nil;
  }
  @synchronized([NSImage class]) {
    [pathsOfPictures() setObject:[[path copy] autorelease] forKey:self];
  }
  return self;
}

- (instancetype)initWithData:(NSData*)data {
  self = [self init];
  if (data == nil || !isPicture({static_cast<const char*>([data bytes]),
                                 static_cast<std::size_t>([data length])})) {
    [self release];
    return nil;
  }
  return self;
}

@end

@implementation NSWorkspace

+ (NSWorkspace*)sharedWorkspace {
  static NSWorkspace* const shared = [[NSWorkspace alloc] init];
  return shared;
}

- (NSNotificationCenter*)notificationCenter {
  static NSNotificationCenter* const center = [[NSNotificationCenter alloc] init];
  return center;
}

- (BOOL)setIcon:(NSImage*)image
        forFile:(NSString*)fullPath
        options:(NSWorkspaceIconCreationOptions)options {
  const std::string file = textOf(fullPath);
  std::string picture;
  if (image != nil) {
    @synchronized([NSImage class]) {
      picture = textOf([pathsOfPictures() objectForKey:image]);
    }
  }
  std::optional<std::string> raised;
  bool isTaken = false;
  {
    const std::lock_guard lock(state().mutex);
    state().icons.push_back({picture, file, options});
    raised = state().raised;
    isTaken = state().takesIcons;
  }
  if (raised) {
    [NSException raise:@"NSInternalInconsistencyException"
                format:@"%@", [NSString stringWithUTF8String:raised->c_str()]];
  }
  std::error_code failure;
  if (!isTaken || !std::filesystem::exists(file, failure)) {
    return NO;
  }
  if (std::filesystem::is_directory(file, failure)) {
    std::ofstream(file + "/Icon\r") << picture << "\n";
  }
  return YES;
}

@end
