#include "FakeSystem.h"

#include <CoreServices/CoreServices.h>
#import <Foundation/Foundation.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <set>

#include "SystemFunctions.h"

namespace {

struct State {
  std::mutex mutex;
  std::map<std::string, void*> functions;
  std::set<std::string> lost;
  NSOperatingSystemVersion version{11, 0, 0};
  SInt32 gestalt = 0x10B0;
  OSErr gestaltError = 0;
  std::string library = "/Library";
  bool hasFolders = true;
};
State& state() {
  static auto& instance = *new State;
  return instance;
}

OSErr gestaltOfFake(OSType selector, SInt32* response) {
  constexpr OSErr UNDEFINED_SELECTOR = -5551;
  const std::lock_guard lock(state().mutex);
  if (selector != gestaltSystemVersion) {
    return UNDEFINED_SELECTOR;
  }
  if (state().gestaltError == 0) {
    *response = state().gestalt;
  }
  return state().gestaltError;
}
const ravelin::fakes::SystemFunction gGestalt("Gestalt", gestaltOfFake);

}  // namespace

namespace ravelin::fakes {

FakeSystem::FakeSystem() = default;

FakeSystem::~FakeSystem() {
  const std::lock_guard lock(state().mutex);
  const State fresh;
  state().lost = fresh.lost;
  state().version = fresh.version;
  state().gestalt = fresh.gestalt;
  state().gestaltError = fresh.gestaltError;
  state().library = fresh.library;
  state().hasFolders = fresh.hasFolders;
}

void FakeSystem::setVersion(long major, long minor, long patch) {
  const std::lock_guard lock(state().mutex);
  state().version = {major, minor, patch};
}

void FakeSystem::setGestalt(std::int32_t version, std::int16_t error) {
  const std::lock_guard lock(state().mutex);
  state().gestalt = version;
  state().gestaltError = error;
}

void FakeSystem::lose(const std::string& function) {
  const std::lock_guard lock(state().mutex);
  state().lost.insert(function);
}

void FakeSystem::setLibrary(const std::string& folder) {
  const std::lock_guard lock(state().mutex);
  state().library = folder;
}

void FakeSystem::loseFolders() {
  const std::lock_guard lock(state().mutex);
  state().hasFolders = false;
}

SystemFunction::SystemFunction(const char* name, void* function) {
  const std::lock_guard lock(state().mutex);
  state().functions[name] = function;
}

}  // namespace ravelin::fakes

// What the project looks up by name is looked up here. There are no such functions to link, so that
// a call of one that may be missing does not link either.
extern "C" void* fakeSystemSymbol(void* /*handle*/, const char* name) noexcept {
  const std::lock_guard lock(state().mutex);
  const auto found = state().functions.find(name);
  return found == state().functions.end() || state().lost.contains(name) ? nullptr : found->second;
}

@implementation NSProcessInfo (FakeVersion)
- (NSOperatingSystemVersion)operatingSystemVersion {
  const std::lock_guard lock(state().mutex);
  return state().version;
}
@end

/// The first of the folders in the variable; empty when there is none.
static std::string firstIn(const char* variable) {
  const char* const value = std::getenv(variable);
  const std::string folders = value == nullptr ? "" : value;
  return folders.substr(0, folders.find(':'));
}

static std::string supportFolder(NSSearchPathDomainMask domain) {
  const bool isUsers = domain == NSUserDomainMask;
  // Where a test's own home has it.
  const std::string own = firstIn(isUsers ? "XDG_DATA_HOME" : "XDG_DATA_DIRS");
  if (!own.empty()) {
    return own;
  }
  return (isUsers ? firstIn("HOME") + "/Library" : state().library) + "/Application Support";
}

// In place of the one of the base library, whose folders are those of another system.
extern "C" NSArray* NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory,
                                                        NSSearchPathDomainMask domainMask,
                                                        BOOL /*expandTilde*/) {
  NSMutableArray* const paths = [NSMutableArray array];
  const std::lock_guard lock(state().mutex);
  if (!state().hasFolders) {
    return paths;
  }
  const auto add = [paths](const std::string& path) {
    [paths addObject:[NSString stringWithUTF8String:path.c_str()]];
  };
  if (directory == NSDesktopDirectory && (domainMask & NSUserDomainMask) != 0) {
    add(firstIn("HOME") + "/Desktop");
  }
  for (const NSSearchPathDomainMask domain : {NSUserDomainMask, NSLocalDomainMask}) {
    if (directory == NSApplicationSupportDirectory && (domainMask & domain) != 0) {
      add(supportFolder(domain));
    }
  }
  return paths;
}
