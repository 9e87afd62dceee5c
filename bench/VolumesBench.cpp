// How long the agent takes to mount and to unmount a share and to look one up among many mounts,
// beside bare GIO in one process and a bare search for the text. Prints the time of each turn, in
// milliseconds, as JSON; of look-ups the processor time, to which other processes add hardly
// anything.

#include <gio/gio.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "SilentLog.h"
#include "base/PercentEscaping.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"
#include "platform/SystemPrograms.h"
#include "platform/linux/gvfs/MountTable.h"

namespace {

using Clock = std::chrono::steady_clock;
using Times = std::map<std::string, std::vector<double>>;

constexpr int MOUNTS = 10000;
constexpr std::chrono::seconds PATIENCE{30};
constexpr std::chrono::milliseconds INTERVAL{1};
/// The path of a share that has just been unmounted takes up to a second to come back when it is
/// mounted again, by the agent or by GIO; that would hide everything else.
constexpr std::chrono::milliseconds PAUSE{1500};

double since(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

/// What this thread has worked so far, in milliseconds.
double worked() {
  std::timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

void require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what);
  }
}

using ravelin::bench::SilentLog;

/// A system that lists the mounts in one of two ways, and does nothing else.
class ListingPrograms final : public ravelin::platform::SystemPrograms {
 public:
  using ChildResult = ravelin::platform::ChildResult;
  using MountListing = ravelin::platform::MountListing;

  /// The next look-up gets this listing, without the cost of making it.
  void list(MountListing listing) {
    _listing = std::move(listing);
    _kernelTable.clear();
  }

  /// The next look-up gets what Linux makes of the kernel's table, without the cost of reading it.
  void listKernelTable(std::string table) { _kernelTable = std::move(table); }

  MountListing mountTable() override { return std::move(_listing); }
  MountListing mountTableAbout(std::string_view sought) override {
    return _kernelTable.empty()
               ? mountTable()
               : ravelin::platform::MountTable(std::move(_kernelTable)).listingAbout(sought);
  }
  ChildResult mountGuestShare(const std::string& /*server*/, const std::string& /*share*/,
                              const std::string& /*folder*/) override {
    return {};
  }
  ChildResult umount(const std::string& /*path*/) override { return {}; }
  ChildResult mkdir(const std::string& /*path*/) override { return {}; }
  ChildResult rmdir(const std::string& /*path*/) override { return {}; }

 private:
  MountListing _listing;
  std::string _kernelTable;
};

std::string addressOf(int number) {
  return "10." + std::to_string(number / 2500) + "." + std::to_string(number / 10 % 250) + ".1";
}

std::string pointOf(int number) {
  return "/mnt/" + addressOf(number) + "/" + std::to_string(number);
}

/// The kernel's mount table with that many shares.
std::string kernelTable() {
  std::string table;
  for (int number = 0; number < MOUNTS; ++number) {
    table.append("//")
        .append(addressOf(number))
        .append("/USB\\040Disk\\040")
        .append(std::to_string(number))
        .append(" ")
        .append(pointOf(number))
        .append(" cifs rw,relatime,vers=3.1.1,cache=strict,username=guest,uid=0,gid=0 0 0\n");
  }
  return table;
}

/// The last of the mounts is looked up.
Times lookUp(int turns) {
  constexpr int LAST = MOUNTS - 1;
  const std::string sought = addressOf(LAST) + "/USB%20Disk%20" + std::to_string(LAST);
  const std::string table = kernelTable();
  const auto listing = ravelin::platform::MountTable(table).listing();
  require(std::ranges::count(listing.text, '\n') == MOUNTS, "there are not so many mounts");
  ravelin::Disk disk;
  disk.setIpAddress(addressOf(LAST));
  disk.setLabel("USB Disk " + std::to_string(LAST));
  ListingPrograms programs;
  const ravelin::platform::Substitute<ravelin::platform::SystemPrograms> listed(programs);
  Times times;
  const auto measure = [&](const char* name) {
    const double begin = worked();
    const auto path = ravelin::DiskManager::getMountedDiskMountDirectory(disk);
    times[name].push_back(worked() - begin);
    require(path == pointOf(LAST), "the last mount has not been looked up");
  };
  for (int turn = 0; turn < turns; ++turn) {
    programs.list(listing);
    measure("lookup");
    programs.listKernelTable(table);
    measure("whole lookup");
    const double begin = worked();
    const std::size_t found = listing.text.find(sought);
    times["bare lookup"].push_back(worked() - begin);
    require(found == listing.text.rfind("//") + 2, "the last mount has not been found");
  }
  return times;
}

Times mountByAgent(const std::string& server, const std::string& share, int turns) {
  ravelin::DiskManager manager;
  Times times;
  for (int turn = 0; turn < turns; ++turn) {
    std::this_thread::sleep_for(PAUSE);
    ravelin::Disk disk;
    disk.setIpAddress(server);
    disk.setLabel(share);
    require(!ravelin::DiskManager::getMountedDiskMountDirectory(disk), "it is mounted already");
    auto begin = Clock::now();
    const bool mounted = manager.mountDisk(disk);
    times["mount"].push_back(since(begin));
    const auto path = ravelin::DiskManager::getMountedDiskMountDirectory(disk);
    require(mounted && path, "the agent cannot mount it");
    begin = Clock::now();
    const bool unmounted = manager.unmountDisk(disk);
    times["unmount"].push_back(since(begin));
    require(unmounted && !ravelin::DiskManager::getMountedDiskMountDirectory(disk),
            "the agent cannot unmount it");
  }
  return times;
}

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

/// GIO's own calls for one share, one after the other.
class BareGio {
 public:
  explicit BareGio(const std::string& url) : _file(g_file_new_for_uri(url.c_str())) {
    g_signal_connect(_operation.get(), "ask-password", G_CALLBACK(_onAskPassword), nullptr);
  }
  ~BareGio() { g_main_loop_unref(_loop); }
  BareGio(const BareGio&) = delete;
  BareGio& operator=(const BareGio&) = delete;

  void mount() {
    g_file_mount_enclosing_volume(_file.get(), G_MOUNT_MOUNT_NONE, _operation.get(), nullptr,
                                  _onDone, this);
    _await();
    GError* error = nullptr;
    g_file_mount_enclosing_volume_finish(_file.get(), _result.get(), &error);
    _check(error);
  }

  /// Where the files of the share are.
  std::string path() {
    GError* error = nullptr;
    _mount.reset(g_file_find_enclosing_mount(_file.get(), nullptr, &error));
    _check(error);
    const Owned<GFile> root(g_mount_get_root(_mount.get()));
    char* const text = g_file_get_path(root.get());
    require(text != nullptr, "no path leads to the share");
    std::string path(text);
    g_free(text);
    return path;
  }

  void unmount() {
    g_mount_unmount_with_operation(_mount.get(), G_MOUNT_UNMOUNT_NONE, _operation.get(), nullptr,
                                   _onDone, this);
    _await();
    GError* error = nullptr;
    g_mount_unmount_with_operation_finish(_mount.get(), _result.get(), &error);
    _check(error);
  }

 private:
  static void _check(GError* error) {
    if (error != nullptr) {
      const std::string message(error->message);
      g_error_free(error);
      throw std::runtime_error("GIO: " + message);
    }
  }

  void _await() { g_main_loop_run(_loop); }

  static void _onAskPassword(GMountOperation* operation, const char* /*message*/,
                             const char* /*user*/, const char* /*domain*/,
                             GAskPasswordFlags /*flags*/, gpointer /*data*/) {
    g_mount_operation_set_anonymous(operation, TRUE);
    g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
  }

  static void _onDone(GObject* /*source*/, GAsyncResult* result, gpointer data) {
    auto& self = *static_cast<BareGio*>(data);
    self._result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
    g_main_loop_quit(self._loop);
  }

  GMainLoop* _loop = g_main_loop_new(nullptr, FALSE);
  Owned<GMountOperation> _operation{g_mount_operation_new()};
  Owned<GFile> _file;
  Owned<GMount> _mount;
  Owned<GAsyncResult> _result;
};

void waitUntil(const std::function<bool()>& holds) {
  const auto end = Clock::now() + PATIENCE;
  while (!holds()) {
    require(Clock::now() < end, "the path does not follow the mount");
    std::this_thread::sleep_for(INTERVAL);
  }
}

bool canBeListed(const std::string& path) {
  std::error_code error;
  const std::filesystem::directory_iterator folder(path, error);
  return !error;
}

bool isMissing(const std::string& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

/// The agent's operations end when the path is there, or gone: these do, too.
Times mountByGio(const std::string& server, const std::string& share, int turns) {
  const std::string url =
      "smb://guest:@" + server + "/" + ravelin::addingPercentEscapes(share).value();
  Times times;
  for (int turn = 0; turn < turns; ++turn) {
    std::this_thread::sleep_for(PAUSE);
    BareGio gio(url);
    auto begin = Clock::now();
    gio.mount();
    times["bare mount call"].push_back(since(begin));
    const std::string path = gio.path();
    waitUntil([&path] { return canBeListed(path); });
    times["bare mount"].push_back(since(begin));
    begin = Clock::now();
    gio.unmount();
    times["bare unmount call"].push_back(since(begin));
    waitUntil([&path] { return isMissing(path); });
    times["bare unmount"].push_back(since(begin));
  }
  return times;
}

void print(const Times& times) {
  const char* separator = "{";
  for (const auto& [name, values] : times) {
    std::printf("%s\n  \"%s\": ", separator, name.c_str());
    const char* before = "[";
    for (const double value : values) {
      std::printf("%s%.4f", before, value);
      before = ", ";
    }
    std::printf("]");
    separator = ",";
  }
  std::puts("\n}");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const std::string mode = arguments.empty() ? "" : arguments.front();
  const bool takesShare = mode == "mount" || mode == "gio";
  int turns = 0;
  if (arguments.size() == (takesShare ? 4U : 2U)) {
    const std::string& number = arguments.back();
    std::from_chars(number.data(), number.data() + number.size(), turns);
  }
  if ((mode != "lookup" && !takesShare) || turns <= 0) {
    std::fputs(
        "usage: ravelin-disk-volumes-bench lookup TURNS | mount SERVER SHARE TURNS | "
        "gio SERVER SHARE TURNS\n",
        stderr);
    return 2;
  }
  SilentLog log;
  const ravelin::platform::Substitute<ravelin::platform::SystemLog> silence(log);
  try {
    print(mode == "lookup"  ? lookUp(turns)
          : mode == "mount" ? mountByAgent(arguments[1], arguments[2], turns)
                            : mountByGio(arguments[1], arguments[2], turns));
    return 0;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "ravelin-disk-volumes-bench: %s\n", problem.what());
    return 1;
  }
}
