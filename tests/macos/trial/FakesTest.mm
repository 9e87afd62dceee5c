// What the fakes promise, and that nothing of it is only said: the services are tested by it.
#import <AppKit/AppKit.h>
#include <CoreServices/CoreServices.h>
#include <NetFS/NetFS.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/event.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "fakes/CoreFoundationObjects.h"
#include "fakes/FakeDynamicStore.h"
#include "fakes/FakeRunLoop.h"
#include "fakes/FakeScripts.h"
#include "fakes/FakeSystem.h"
#include "fakes/FakeVolumes.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/SystemAdditions.h"
#include "platform/macos/CoreFoundationText.h"
#include "platform/scripts/AliasScript.h"
#include "platform/scripts/RemovalScript.h"
#include "platform/scripts/ShortcutScript.h"
#include "support/TemporaryDirectory.h"
#include "support/TemporaryHome.h"

extern "C" void* fakeSystemSymbol(void* handle, const char* name) noexcept;

@interface RavelinFakesObserver : NSObject {
 @public
  std::vector<std::string>* names;
}
- (void)changed:(NSNotification*)notification;
@end

@implementation RavelinFakesObserver
- (void)changed:(NSNotification*)notification {
  names->emplace_back([[notification name] UTF8String]);
}
@end

namespace ravelin::fakes {
namespace {

namespace fs = std::filesystem;

using platform::cfStringOf;
using platform::Owned;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

// --- the dynamic store

class FakeDynamicStoreTest : public testing::Test {
 protected:
  FakeDynamicStoreTest() {
    SCDynamicStoreContext context{};
    context.info = this;
    session.reset(SCDynamicStoreCreate(
        kCFAllocatorDefault, CFSTR("Name"),
        [](SCDynamicStoreRef, CFArrayRef changed, void* info) {
          Texts keys;
          for (CFIndex index = 0; index < CFArrayGetCount(changed); ++index) {
            keys.push_back(
                contentOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(changed, index))));
          }
          static_cast<FakeDynamicStoreTest*>(info)->told.push_back(keys);
        },
        &context));
  }

  ~FakeDynamicStoreTest() override {
    if (source != nullptr) {
      CFRunLoopSourceInvalidate(source.get());
    }
  }

  bool watch(const char* pattern) {
    const Owned<CFArrayRef> patterns(makeArray({pattern}));
    return SCDynamicStoreSetNotificationKeys(session.get(), nullptr, patterns.get()) != 0;
  }

  void add() {
    source.reset(SCDynamicStoreCreateRunLoopSource(kCFAllocatorDefault, session.get(), 0));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.get(), kCFRunLoopDefaultMode);
  }

  FakeDynamicStore store;
  Owned<SCDynamicStoreRef> session;
  Owned<CFRunLoopSourceRef> source;
  std::vector<Texts> told;
};

TEST_F(FakeDynamicStoreTest, TellsOnceOfWhatComesTogether) {
  ASSERT_TRUE(watch("State:/Network/Interface/.*/IPv4"));
  store.set("State:/Network/Interface/en0/IPv4", "before the source");
  add();
  spinRunLoop(0);
  std::thread([this] {
    store.set("State:/Network/Interface/en1/IPv4", "1");
    store.set("State:/Network/Interface/en0/IPv4", "2");
    store.remove("State:/Network/Interface/en1/IPv4");
    store.set("State:/Network/Interface/en1/IPv6", "3");
    store.set("Old State:/Network/Interface/en1/IPv4", "4");
    store.remove("State:/Network/Interface/en7/IPv4");
  }).join();
  spinRunLoop(0);
  spinRunLoop(0);
  EXPECT_THAT(told, ElementsAre(Texts{"State:/Network/Interface/en0/IPv4"},
                                Texts{"State:/Network/Interface/en1/IPv4",
                                      "State:/Network/Interface/en0/IPv4"}));
  const Owned<CFTypeRef> value(
      SCDynamicStoreCopyValue(session.get(), CFSTR("State:/Network/Interface/en0/IPv4")));
  EXPECT_EQ(contentOf(static_cast<CFStringRef>(value.get())), "2");
  EXPECT_EQ(SCDynamicStoreCopyValue(session.get(), CFSTR("State:/Network/Interface/en1/IPv4")),
            nullptr);
}

TEST_F(FakeDynamicStoreTest, RefusesWithAReason) {
  store.refuseKeys(FakeDynamicStore::FAILED);
  EXPECT_FALSE(watch("x"));
  EXPECT_STREQ(SCErrorString(SCError()), "Failed!");
  store.refuseKeys(FakeDynamicStore::OK);
  EXPECT_FALSE(watch("("));
  EXPECT_EQ(SCError(), FakeDynamicStore::INVALID_ARGUMENT);
  store.refuseSessions(FakeDynamicStore::NO_STORE_SESSION);
  EXPECT_EQ(SCDynamicStoreCreate(kCFAllocatorDefault, CFSTR("x"), nullptr, nullptr), nullptr);
  EXPECT_EQ(SCError(), FakeDynamicStore::NO_STORE_SESSION);
}

TEST_F(FakeDynamicStoreTest, TheSourceKeepsTheSession) {
  ASSERT_TRUE(watch("key"));
  add();
  session.reset();
  store.set("key", "");
  spinRunLoop(0);
  EXPECT_EQ(told.size(), 1U);
  CFRunLoopSourceInvalidate(source.get());
  store.set("key", "");
  spinRunLoop(0);
  EXPECT_EQ(told.size(), 1U);
  source.reset();
  EXPECT_EQ(store.sessions(), 0);
}

// --- the session

TEST(FakeWorkspaceTest, TheSessionIsToldByItsOwnCentreOnTheMainThreadsLoop) {
  @autoreleasepool {
    FakeWorkspace workspace;
    Texts names;
    RavelinFakesObserver* const observer = [[[RavelinFakesObserver alloc] init] autorelease];
    observer->names = &names;
    NSNotificationCenter* const center = [[NSWorkspace sharedWorkspace] notificationCenter];
    for (NSString* name in @[
           NSWorkspaceSessionDidBecomeActiveNotification,
           NSWorkspaceSessionDidResignActiveNotification
         ]) {
      [center addObserver:observer selector:@selector(changed:) name:name object:nil];
    }
    workspace.startInBackground();
    std::thread([&workspace] {
      workspace.setSessionActive(false);
      workspace.setSessionActive(true);
      workspace.setSessionActive(false);
    }).join();
    EXPECT_THAT(names, IsEmpty());
    spinRunLoop(0);
    EXPECT_THAT(names, ElementsAre("NSWorkspaceSessionDidBecomeActiveNotification",
                                   "NSWorkspaceSessionDidResignActiveNotification"));
    [center removeObserver:observer];
    workspace.setSessionActive(true);
    spinRunLoop(0);
    EXPECT_EQ(names.size(), 2U);
  }
}

// --- scripts

class FakeScriptsTest : public testing::Test {
 protected:
  /// The number of the error, 0 for none.
  static int run(const std::string& source) {
    @autoreleasepool {
      NSAppleScript* const script = [[[NSAppleScript alloc]
          initWithSource:[NSString stringWithUTF8String:source.c_str()]] autorelease];
      NSDictionary* error = nil;
      if ([script executeAndReturnError:&error] != nil) {
        return 0;
      }
      return [[error objectForKey:@"NSAppleScriptErrorNumber"] intValue];
    }
  }

  FakeScripts scripts;
  test::TemporaryHome home;
};

TEST_F(FakeScriptsTest, KeepsWhatIsRun) {
  const std::string source = platform::ShortcutScript{"192.0.2.10", "USB", "USB"}.source();
  EXPECT_EQ(run(source), 0);
  EXPECT_NE(run("an odd \" mark"), 0);
  EXPECT_THAT(scripts.sources(), ElementsAre(source));
  scripts.refuse(-1743, "Not authorized to send Apple events to Finder.");
  EXPECT_EQ(run(source), -1743);
}

TEST_F(FakeScriptsTest, DoesToTheDesktopWhatTheScriptsSay) {
  scripts.setDesktop(home.desktop());
  const std::string bundle = home.desktop() + "/USB Disk.app";
  const platform::ShortcutScript script{"192.0.2.10", "USB", "USB Disk"};
  EXPECT_EQ(run(script.source()), 0);
  EXPECT_TRUE(fs::is_regular_file(bundle + "/Contents/Resources/Scripts/main.scpt"));
  EXPECT_NE(run(script.source()), 0);
  EXPECT_EQ(run(platform::RemovalScript{"USB Disk.app"}.source()), 0);
  EXPECT_FALSE(fs::exists(bundle));
  EXPECT_TRUE(fs::exists(home.trash() + "/USB Disk.app"));
  EXPECT_EQ(run(platform::RemovalScript{"USB Disk.app"}.source()), 0);
  EXPECT_EQ(run(platform::AliasScript{"X", "/Volumes/X"}.source()), 0);
  EXPECT_TRUE(fs::is_regular_file(home.desktop() + "/X"));
}

TEST(ScriptsTest, WithoutAFakeTheDesktopIsThatOfTheHomeFolder) {
  const test::TemporaryHome home;
  @autoreleasepool {
    const std::string source = platform::ShortcutScript{"192.0.2.10", "USB", "USB"}.source();
    NSAppleScript* const script = [[[NSAppleScript alloc]
        initWithSource:[NSString stringWithUTF8String:source.c_str()]] autorelease];
    NSDictionary* error = nil;
    EXPECT_NE([script executeAndReturnError:&error], nil);
    EXPECT_TRUE(fs::is_directory(home.desktop() + "/USB.app"));
  }
}

TEST_F(FakeScriptsTest, AScriptMayRunTheLoop) {
  bool wasCalled = false;
  scripts.setDuring([&] {
    postToMainLoop([&] { wasCalled = true; });
    spinRunLoop(0.05);
  });
  EXPECT_EQ(run("x"), 0);
  EXPECT_TRUE(wasCalled);
}

// --- volumes

template <class Function>
Function* lookedUp(const char* name) {
  return reinterpret_cast<Function*>(fakeSystemSymbol(RTLD_DEFAULT, name));
}

class FakeVolumesTest : public testing::Test {
 protected:
  static OSStatus mount(const char* address, FSVolumeRefNum& reference) {
    const Owned<CFURLRef> url(
        CFURLCreateWithString(kCFAllocatorDefault, cfStringOf(address).get(), nullptr));
    return lookedUp<decltype(FSMountServerVolumeSync)>("FSMountServerVolumeSync")(
        url.get(), nullptr, CFSTR("guest"), CFSTR(""), &reference, 0);
  }

  test::TemporaryDirectory folder;
  FakeVolumes volumes{folder.path()};
  FakeSystem system;
};

TEST_F(FakeVolumesTest, MountsFindsAndUnmountsAShare) {
  FSVolumeRefNum reference = 0;
  ASSERT_EQ(mount("smb://192.0.2.10/USB%20Disk", reference), 0);
  EXPECT_LT(reference, 0);
  const std::string path = folder.path() + "/USB Disk";
  EXPECT_THAT(volumes.mountPoints(), ElementsAre(path));
  EXPECT_TRUE(fs::is_directory(path));
  FSVolumeRefNum again = 0;
  EXPECT_EQ(mount("smb://192.0.2.10/USB%20Disk", again), FakeVolumes::ALREADY_MOUNTED);
  EXPECT_EQ(again, reference);

  HFSUniStr255 name{};
  FSRef root{};
  const auto info = lookedUp<decltype(FSGetVolumeInfo)>("FSGetVolumeInfo");
  ASSERT_EQ(info(0, 1, nullptr, kFSVolInfoNone, nullptr, &name, &root), 0);
  EXPECT_EQ(name.length, 8);
  const Owned<CFURLRef> url(
      lookedUp<decltype(CFURLCreateFromFSRef)>("CFURLCreateFromFSRef")(nullptr, &root));
  const Owned<CFStringRef> rootPath(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle));
  EXPECT_EQ(contentOf(rootPath.get()), path);
  EXPECT_NE(info(0, 2, nullptr, kFSVolInfoNone, nullptr, &name, &root), 0);

  const auto unmountIt = lookedUp<decltype(FSUnmountVolumeSync)>("FSUnmountVolumeSync");
  pid_t dissenter = 0;
  volumes.refuseUnmounts(FakeVolumes::IN_USE);
  EXPECT_EQ(unmountIt(reference, 0, &dissenter), FakeVolumes::IN_USE);
  EXPECT_NE(dissenter, 0);
  volumes.refuseUnmounts(FakeVolumes::OK);
  EXPECT_EQ(unmountIt(reference, 0, &dissenter), 0);
  EXPECT_EQ(unmountIt(reference, 0, &dissenter), FakeVolumes::NO_SUCH_VOLUME);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(FakeVolumesTest, RefusesAsItIsTold) {
  FSVolumeRefNum reference = 0;
  volumes.refuseMounts(FakeVolumes::SERVER_NOT_FOUND);
  EXPECT_EQ(mount("smb://192.0.2.10/USB", reference), FakeVolumes::SERVER_NOT_FOUND);
  EXPECT_EQ(mount("http://192.0.2.10/USB", reference), FakeVolumes::BAD_PARAMETER);
  EXPECT_EQ(volumes.mounts().size(), 2U);
  EXPECT_EQ(volumes.mounts().front().user, "guest");
  EXPECT_THAT(volumes.mountPoints(), IsEmpty());
}

TEST_F(FakeVolumesTest, ThereMayBeNoSuchCalls) {
  system.lose("FSMountServerVolumeSync");
  EXPECT_EQ(fakeSystemSymbol(RTLD_DEFAULT, "FSMountServerVolumeSync"), nullptr);
  EXPECT_NE(fakeSystemSymbol(RTLD_DEFAULT, "FSUnmountVolumeSync"), nullptr);
}

TEST_F(FakeVolumesTest, NetFsAndTheKernelSeeTheSameVolumes) {
  const Owned<CFURLRef> url(
      CFURLCreateWithString(kCFAllocatorDefault, CFSTR("smb://192.0.2.10/USB"), nullptr));
  const Owned<CFMutableDictionaryRef> options(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(options.get(), kNetFSUseGuestKey, kCFBooleanTrue);
  CFDictionarySetValue(options.get(), kNAUIOptionKey, kNAUIOptionNoUI);
  CFArrayRef points = nullptr;
  ASSERT_EQ(
      NetFSMountURLSync(url.get(), nullptr, nullptr, nullptr, options.get(), nullptr, &points), 0);
  const Owned<CFArrayRef> owned(points);
  const std::string path = folder.path() + "/USB";
  EXPECT_EQ(contentOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(points, 0))), path);
  EXPECT_TRUE(volumes.mounts().front().asGuest);
  EXPECT_FALSE(volumes.mounts().front().mayAsk);

  volumes.add("Disk", "/", "/dev/disk1");
  ASSERT_EQ(getfsstat(nullptr, 0, MNT_NOWAIT), 2);
  std::vector<struct statfs> entries(2);
  ASSERT_EQ(getfsstat(entries.data(), static_cast<int>(2 * sizeof(struct statfs)), MNT_NOWAIT), 2);
  EXPECT_STREQ(entries[0].f_mntonname, path.c_str());
  EXPECT_STREQ(entries[0].f_mntfromname, "//192.0.2.10/USB");
  EXPECT_STREQ(entries[0].f_fstypename, "smbfs");
  volumes.refuseUnmounts(FakeVolumes::IN_USE);
  EXPECT_EQ(::unmount(path.c_str(), 0), -1);
  EXPECT_EQ(errno, EBUSY);
  volumes.refuseUnmounts(FakeVolumes::OK);
  EXPECT_EQ(::unmount(path.c_str(), 0), 0);
  EXPECT_THAT(volumes.mountPoints(), ElementsAre("/"));
}

// --- system calls

class FakeSystemCallsTest : public testing::Test {
 protected:
  FakeSystemCallsTest() : opened(::open(folder.path().c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~FakeSystemCallsTest() override { ::close(opened); }

  test::TemporaryDirectory folder;
  int opened;
};

TEST_F(FakeSystemCallsTest, RenamesAndTellsPathsAndAttributes) {
  std::ofstream(folder.path() + "/one") << "1";
  fs::create_directory(folder.path() + "/two");
  EXPECT_EQ(renameatx_np(opened, "one", opened, "two", RENAME_EXCL), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(renameatx_np(opened, "one", opened, "two", RENAME_SWAP), 0);
  EXPECT_TRUE(fs::is_directory(folder.path() + "/one"));
  std::array<char, PATH_MAX> path{};
  EXPECT_EQ(::fcntl(opened, F_GETPATH, path.data()), 0);
  EXPECT_EQ(path.data(), fs::canonical(folder.path()));
  EXPECT_EQ(::fcntl(-1, F_GETPATH, path.data()), -1);
  EXPECT_LT(::fgetxattr(opened, "mark", nullptr, 0, 0, 0), 0);
  EXPECT_EQ(::fsetxattr(opened, "mark", "", 0, 0, 0), 0);
  EXPECT_EQ(::fgetxattr(opened, "mark", nullptr, 0, 0, 0), 0);
}

TEST_F(FakeSystemCallsTest, AQueueTellsThatAProcessHasEnded) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(ends[1]);
    char byte = 0;
    ::_exit(static_cast<int>(::read(ends[0], &byte, 1)));
  }
  const int queue = ::kqueue();
  const struct kevent end{.ident = static_cast<uintptr_t>(child),
                          .filter = EVFILT_PROC,
                          .flags = EV_ADD,
                          .fflags = NOTE_EXIT,
                          .data = 0,
                          .udata = nullptr};
  EXPECT_EQ(::kevent(queue, &end, 1, nullptr, 0, nullptr), 0);
  pollfd entry{queue, POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 0), 0);
  ::close(ends[1]);
  EXPECT_EQ(::poll(&entry, 1, 20'000), 1);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(::kevent(queue, &end, 1, nullptr, 0, nullptr), -1);
  EXPECT_EQ(errno, ESRCH);
  ::close(queue);
  ::close(ends[0]);
}

}  // namespace
}  // namespace ravelin::fakes
