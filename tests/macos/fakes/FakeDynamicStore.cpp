#include "FakeDynamicStore.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <utility>

#include "CoreFoundationObjects.h"
#include "FakeRunLoop.h"

using ravelin::fakes::contentOf;
using ravelin::fakes::FakeDynamicStore;
using ravelin::fakes::Object;
using ravelin::fakes::Reference;

struct __SCDynamicStore : Object {
  __SCDynamicStore() = default;
  ~__SCDynamicStore() override;

  SCDynamicStoreCallBack callout = nullptr;
  SCDynamicStoreContext context{};
  // Guarded by the mutex of the state below, as are the sources' ends.
  std::vector<std::string> keys;
  std::vector<std::regex> patterns;
  std::vector<std::string> changed;
  CFRunLoopSourceRef source = nullptr;  ///< not retained; it retains this
};

namespace {

using Session = __SCDynamicStore;

struct State {
  std::mutex mutex;
  // All guarded by the mutex.
  std::map<std::string, std::string> values;
  std::set<Session*> sessions;
  std::vector<std::string> names;
  int keysStatus = FakeDynamicStore::OK;
  int sessionsStatus = FakeDynamicStore::OK;
};
State& state() {
  static auto& instance = *new State;
  return instance;
}

thread_local int gStatus = FakeDynamicStore::OK;

bool wants(const Session& session, const std::string& key) {
  return std::ranges::find(session.keys, key) != session.keys.end() ||
         std::ranges::any_of(session.patterns, [&key](const std::regex& pattern) {
           return std::regex_match(key, pattern);
         });
}

/// With the mutex held.
void tell(const std::string& key) {
  for (Session* session : state().sessions) {
    if (wants(*session, key)) {
      if (std::ranges::find(session->changed, key) == session->changed.end()) {
        session->changed.push_back(key);
      }
      if (session->source != nullptr) {
        ravelin::fakes::signalAndWake(session->source);
      }
    }
  }
}

std::vector<std::string> textsOf(CFArrayRef array) {
  std::vector<std::string> texts;
  for (CFIndex index = 0; array != nullptr && index < CFArrayGetCount(array); ++index) {
    texts.push_back(contentOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, index))));
  }
  return texts;
}

void deliver(void* info) {
  const auto session = Reference<Session>::to(static_cast<Session*>(info));
  std::vector<std::string> changed;
  {
    const std::lock_guard lock(state().mutex);
    changed.swap(session->changed);
  }
  if (!changed.empty() && session->callout != nullptr) {
    const Reference keys(const_cast<__CFArray*>(ravelin::fakes::makeArray(changed)));
    session->callout(session.get(), keys.get(), session->context.info);
  }
}

}  // namespace

__SCDynamicStore::~__SCDynamicStore() {
  {
    const std::lock_guard lock(state().mutex);
    state().sessions.erase(this);
  }
  if (context.release != nullptr) {
    context.release(context.info);
  }
}

namespace ravelin::fakes {

FakeDynamicStore::FakeDynamicStore() {
  const std::lock_guard lock(state().mutex);
  state().values.clear();
  state().names.clear();
}

FakeDynamicStore::~FakeDynamicStore() {
  refuseKeys(OK);
  refuseSessions(OK);
}

void FakeDynamicStore::set(const std::string& key, const std::string& value) {
  const std::lock_guard lock(state().mutex);
  state().values[key] = value;
  tell(key);
}

void FakeDynamicStore::remove(const std::string& key) {
  const std::lock_guard lock(state().mutex);
  if (state().values.erase(key) != 0) {
    tell(key);
  }
}

void FakeDynamicStore::refuseKeys(Status status) {
  const std::lock_guard lock(state().mutex);
  state().keysStatus = status;
}

void FakeDynamicStore::refuseSessions(Status status) {
  const std::lock_guard lock(state().mutex);
  state().sessionsStatus = status;
}

int FakeDynamicStore::sessions() const {
  const std::lock_guard lock(state().mutex);
  return static_cast<int>(state().sessions.size());
}

std::vector<std::string> FakeDynamicStore::names() const {
  const std::lock_guard lock(state().mutex);
  return state().names;
}

}  // namespace ravelin::fakes

extern "C" {

SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef /*allocator*/, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* context) {
  const std::lock_guard lock(state().mutex);
  gStatus = state().sessionsStatus;
  if (gStatus != FakeDynamicStore::OK) {
    return nullptr;
  }
  auto* const session = new Session;
  session->callout = callout;
  session->context = context == nullptr ? SCDynamicStoreContext{} : *context;
  if (session->context.retain != nullptr) {
    session->context.info = const_cast<void*>(session->context.retain(session->context.info));
  }
  state().sessions.insert(session);
  state().names.push_back(contentOf(name));
  return session;
}

Boolean SCDynamicStoreSetNotificationKeys(SCDynamicStoreRef store, CFArrayRef keys,
                                          CFArrayRef patterns) {
  if (store == nullptr) {
    gStatus = FakeDynamicStore::NO_STORE_SESSION;
    return 0;
  }
  const std::lock_guard lock(state().mutex);
  gStatus = state().keysStatus;
  if (gStatus != FakeDynamicStore::OK) {
    return 0;
  }
  std::vector<std::regex> compiled;
  try {
    for (const std::string& pattern : textsOf(patterns)) {
      compiled.emplace_back(pattern, std::regex::extended);
    }
  } catch (const std::regex_error&) {
    gStatus = FakeDynamicStore::INVALID_ARGUMENT;
    return 0;
  }
  auto& session = const_cast<Session&>(*store);
  session.keys = textsOf(keys);
  session.patterns = std::move(compiled);
  return 1;
}

CFRunLoopSourceRef SCDynamicStoreCreateRunLoopSource(CFAllocatorRef allocator,
                                                     SCDynamicStoreRef store, CFIndex order) {
  if (store == nullptr) {
    gStatus = FakeDynamicStore::NO_STORE_SESSION;
    return nullptr;
  }
  CFRunLoopSourceContext context{};
  context.info = const_cast<Session*>(store);
  context.retain = [](const void* session) { return CFRetain(session); };
  context.release = [](const void* session) {
    {
      const std::lock_guard lock(state().mutex);
      const_cast<Session*>(static_cast<const Session*>(session))->source = nullptr;
    }
    CFRelease(session);
  };
  context.perform = deliver;
  CFRunLoopSourceRef source = CFRunLoopSourceCreate(allocator, order, &context);
  const std::lock_guard lock(state().mutex);
  auto& session = const_cast<Session&>(*store);
  session.source = source;
  // What has changed before is told, too.
  if (!session.changed.empty()) {
    ravelin::fakes::signalAndWake(source);
  }
  return source;
}

CFTypeRef SCDynamicStoreCopyValue(SCDynamicStoreRef store, CFStringRef key) {
  if (store == nullptr) {
    gStatus = FakeDynamicStore::NO_STORE_SESSION;
    return nullptr;
  }
  constexpr int NO_KEY = 1004;
  const std::lock_guard lock(state().mutex);
  const auto found = state().values.find(contentOf(key));
  gStatus = found == state().values.end() ? NO_KEY : static_cast<int>(FakeDynamicStore::OK);
  return found == state().values.end() ? nullptr : ravelin::fakes::makeString(found->second);
}

int SCError(void) { return gStatus; }

const char* SCErrorString(int status) {
  switch (status) {
    case FakeDynamicStore::OK:
      return "Success!";
    case FakeDynamicStore::FAILED:
      return "Failed!";
    case FakeDynamicStore::INVALID_ARGUMENT:
      return "Invalid argument";
    case FakeDynamicStore::NO_STORE_SESSION:
      return "Configuration daemon session not active";
    default:
      return "No such key";
  }
}

}  // extern "C"
