#include "controller/Controller.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <utility>

#include "base/Blanks.h"
#include "base/LogTemplate.h"
#include "base/PathComponents.h"
#include "base/PercentEscaping.h"
#include "base/Precondition.h"
#include "base/Utf8.h"
#include "core/AgentState.h"
#include "core/Constants.h"
#include "core/DirectoryFinder.h"
#include "core/Logger.h"
#include "intake/Completeness.h"
#include "intake/EventParser.h"
#include "intake/SenderAddress.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"
#include "platform/Service.h"
#include "platform/SystemVersion.h"
#include "platform/Workspace.h"

namespace ravelin {

using platform::RunLoop;

namespace {

constexpr RunLoop::Seconds RUN_LOOP_PASS_LIMIT{43200.0};
constexpr std::int32_t LAST_VERSION_BEFORE_SNOW_LEOPARD = 0x105F;

constexpr auto LIVENESS_INTERVAL = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
    std::chrono::duration<double>(DISK_UPDATE_TIME_CHECKER_INTERVAL));

/// More than a list of as many disks as are let in can take.
constexpr std::size_t RECORD_FILE_LIMIT = std::size_t{256} * 1024 * 1024;

platform::FileManager& fileManager() { return platform::service<platform::FileManager>(); }

Disk::Date now() { return platform::service<platform::Clock>().now(); }

void logFailedRemoval(const platform::FileError& error) {
  Logger::logPeerMessage("Error when deleting alias file. Reason: " + error.localizedDescription,
                         LogTypeError);
}

std::string recordFilePath() {
  return textOrNull(DirectoryFinder::UserApplicationSupportDirectory()) + "/" +
         std::string(DISK_RECORD_FILE);
}

/// A line of the record file. The text is a formatting template, but neither its content nor its
/// length may affect the lines after it: a NUL is a character like any other here, and a text that
/// is cut short still gets its line end.
std::string recordLine(std::string_view text) {
  std::string line;
  while (true) {
    const std::size_t end = text.find('\0');
    line += expandLogTemplate(text.substr(0, end));
    if (end == std::string_view::npos || line.size() >= LOG_TEMPLATE_LIMIT) {
      break;
    }
    line += '\0';
    text.remove_prefix(end + 1);
  }
  line.resize(std::min(line.size(), LOG_TEMPLATE_LIMIT));
  return line + "\n";
}

}  // namespace

Controller::Controller() {
  precondition(RunLoop::main().isCurrent(), "Controller::Controller()", "main thread");
  std::promise<RunLoop*> started;
  auto runLoop = started.get_future();
  _handlerThread = std::thread(&Controller::_startDiskEventHandler, this, std::move(started));
  _handlerRunLoop = runLoop.get();
}

Controller::~Controller() {
  _handlerShouldEnd = true;
  // Only this ends the handler thread, so that its run loop is still there to take the action.
  _handlerRunLoop->perform([this] { _handlerMayLeave = true; });
  while (!_handlerHasEnded) {
    RunLoop::main().runOnce(RunLoop::DISTANT_FUTURE);
  }
  _handlerThread.join();
}

std::vector<DiskPtr> Controller::mountedDisks() const {
  const LockGuard lock(_mutex);
  return _mountedDisks.copy();
}

void Controller::setMountedDisks(const std::vector<DiskPtr>& mountedDisks) {
  MountedDisks records;
  for (const DiskPtr& disk : mountedDisks) {
    precondition(disk != nullptr, "Controller::setMountedDisks(mountedDisks)", "disk != null");
    records.append(disk);
  }
  {
    const LockGuard lock(_mutex);
    if (_mountedDisks.count() == 0) {
      _disksKnownSince = std::chrono::steady_clock::now();
    }
    std::swap(_mountedDisks, records);
  }
  _diskUpdateTimeCheckerTimer.wake();
}

std::vector<DiskPtr> Controller::diskEventQueue() const {
  const LockGuard lock(_mutex);
  const auto& events = _diskEventQueue.elements();
  return {events.begin(), events.end()};
}

void Controller::setDiskEventQueue(const std::vector<DiskPtr>& diskEventQueue) {
  Queue events;
  for (const DiskPtr& event : diskEventQueue) {
    events.enqueue(event);
  }
  {
    const LockGuard lock(_mutex);
    std::swap(_diskEventQueue, events);
    _admission.queueWasReplaced();
  }
  _diskEventHandlerTimer.wake();
}

std::size_t Controller::waitingEvents() const {
  const LockGuard lock(_mutex);
  return _diskEventQueue.count();
}

void Controller::server(Server& /*server*/, std::span<const std::byte> receivedData,
                        std::span<const std::byte> fromAddress) {
  if (gSystemWillTerminate) {
    return;
  }
  const DiskPtr event = EventParser::parse(receivedData);
  if (!_isDiskValid(event.get())) {
    return;
  }
  event->setSender(senderIn(fromAddress));
  Text line;
  {
    const LockGuard lock(_mutex);
    if (!_isUniqueEvent(*event)) {
      return;
    }
    if (const auto limit = _admission.admit(event)) {
      line = _admission.lineAbout(event->sender(), *limit, std::chrono::steady_clock::now());
    }
  }
  if (line) {
    Logger::logMessage(*line, LogTypeError);
  }
  _diskEventHandlerTimer.wake();
}

bool Controller::_isDiskValid(const Disk* disk) { return disk != nullptr && !lackOf(*disk); }

bool Controller::_isUniqueEvent(const Disk& event) const {
  return !_diskEventQueue.containsReceiverEqualTo(event);
}

void Controller::_startDiskEventHandler(std::promise<RunLoop*> started) {
  RunLoop& runLoop = RunLoop::current();
  // Taken before the timer starts, so that the timer always finds its check due or already made.
  _nextCheck = std::chrono::steady_clock::now() + LIVENESS_INTERVAL;
  _diskEventHandlerTimer.start(
      runLoop, RunLoop::Seconds(DISK_EVENT_HANDLER_INTERVAL),
      [this] {
        _processNextDiskEvent();
        RunLoop::current().giveBackMemoryBeforeWaiting();
      },
      // It comes once without an event: the start is over then.
      [this, comesOnce = true]() mutable {
        return std::exchange(comesOnce, false) || waitingEvents() > 0;
      });
  _diskUpdateTimeCheckerTimer.start(
      runLoop, RunLoop::Seconds(DISK_UPDATE_TIME_CHECKER_INTERVAL),
      [this] { _checkUpdateTimesWhenDue(); },
      [this] {
        const LockGuard lock(_mutex);
        return _mountedDisks.count() > 0;
      });
  started.set_value(&runLoop);
  while (!_handlerMayLeave) {
    runLoop.runOnce(RUN_LOOP_PASS_LIMIT);
  }
  _diskEventHandlerTimer.stop();
  _diskUpdateTimeCheckerTimer.stop();
  _handlerHasEnded = true;
  RunLoop::main().perform([] {});
}

void Controller::_processNextDiskEvent() {
  if (gSystemWillTerminate) {
    return;
  }
  while (!_handlerShouldEnd) {
    DiskPtr event;
    {
      const LockGuard lock(_mutex);
      event = _admission.next();
    }
    if (!event) {
      return;
    }
    _process(event);
    _checkUpdateTimesWhenDue();
  }
}

void Controller::_process(const DiskPtr& event) {
  const Text& name = event->eventName();
  const bool isStatus = name == "disk_status";
  if (name == "disk_mounted" || isStatus) {
    if (!_isDiskMounted(*event)) {
      if (isStatus) {
        Logger::logPeerMessage(
            "Disk " + textOrNull(event->label()) +
                " is being mounted because it was already mounted on the device as "
                "stated in disk_status message",
            LogTypeInfo);
      }
      _mountDisk(event);
    } else if (_shouldDiskRemounted(*event)) {
      _unmountDisk(*event);
      _mountDisk(event);
    } else {
      _updateDiskUpdateTime(*event);
    }
  } else if (name == "disk_unmounted") {
    if (_isDiskMounted(*event)) {
      _unmountDisk(*event);
    }
  } else if (name == "no_disk") {
    std::vector<DiskPtr> disks;
    {
      const LockGuard lock(_mutex);
      disks = _mountedDisks.ofDevice(event->macAddress());
    }
    for (const DiskPtr& disk : disks) {
      Logger::logPeerMessage(
          "Disk " + textOrNull(disk->label()) +
              " is being unmounted because it was already unmounted on the device "
              "as stated in no_disk message",
          LogTypeInfo);
      _unmountDisk(*disk);
    }
  }
}

DiskPtr Controller::_findMountedInternalDisk(const Disk& event) const {
  const LockGuard lock(_mutex);
  return _mountedDisks.find(event);
}

bool Controller::_isDiskMounted(const Disk& event) const {
  return _findMountedInternalDisk(event) != nullptr;
}

bool Controller::_shouldDiskRemounted(const Disk& event) const {
  // A mounted disk keeps the values with which it was mounted, even if the device announces others
  // later.
  return !_isDiskMounted(event);
}

void Controller::_mountDisk(const DiskPtr& disk) {
  // Looked up once, so that all steps are taken in the same folder.
  const Text desktop = DirectoryFinder::desktopDirectory();
  const std::string path = _shortcutPathForDisk(*disk, desktop);
  if (fileManager().itemExistsAtPath(path, desktop)) {
    // What could not be moved away stays: the script replaces nothing of the user's.
    if (const auto error = fileManager().makeWayAtPath(path, desktop)) {
      logFailedRemoval(*error);
    }
  }
  const platform::ShortcutScript script{
      disk->ipAddress(), disk->label() ? _encodeURLString(*disk->label()) : std::nullopt,
      disk->label(), desktop};
  // Both in one hand-over: each costs more than most of what is done in it.
  RunLoop::main().performAndWait([&] {
    {
      const LockGuard lock(_mutex);
      if (_handlerShouldEnd) {
        return;
      }
      _diskBeingMounted = disk;
    }
    runApplescript(script);
    setImageInMainThread(*disk, desktop);
  });
  disk->setLastUpdateTime(now());
  {
    const LockGuard lock(_mutex);
    if (std::exchange(_diskBeingMounted, nullptr) == disk) {
      if (_mountedDisks.count() == 0) {
        _disksKnownSince = std::chrono::steady_clock::now();
      }
      _mountedDisks.append(disk);
    }
  }
  _diskUpdateTimeCheckerTimer.wake();
}

void Controller::_unmountDisk(const Disk& event) {
  const DiskPtr mounted = _findMountedInternalDisk(event);
  if (!mounted) {
    // The other thread has unmounted it meanwhile.
    return;
  }
  const Text desktop = DirectoryFinder::desktopDirectory();
  _deleteAliasAtPath(_shortcutPathForDisk(*mounted, desktop), desktop);
  const LockGuard lock(_mutex);
  _mountedDisks.remove(*mounted);
}

void Controller::unmountAll() {
  std::vector<DiskPtr> disks;
  DiskPtr beingMounted;
  {
    const LockGuard lock(_mutex);
    disks = _mountedDisks.copy();
    beingMounted = std::exchange(_diskBeingMounted, nullptr);
  }
  for (const DiskPtr& disk : disks) {
    _unmountDisk(*disk);
  }
  if (beingMounted) {
    const Text desktop = DirectoryFinder::desktopDirectory();
    const std::string path = _shortcutPathForDisk(*beingMounted, desktop);
    if (fileManager().itemExistsAtPath(path, desktop)) {
      _deleteAliasAtPath(path, desktop);
    }
  }
}

void Controller::_deleteAliasAtPath(const std::string& path, const Text& desktop) {
  const bool reports = SnowLeopardAndAbove();
  if (!reports) {
    const platform::RemovalScript script{lastPathComponent(path)};
    RunLoop::main().performAndWait([&] { runApplescript(script); });
  }
  const auto error = fileManager().removeShortcutAtPath(path, desktop);
  if (error && reports) {
    logFailedRemoval(*error);
  }
}

std::string Controller::_getAliasPathForDisk(const Disk& disk, const Text& desktop) {
  return textOrNull(desktop) + "/" + textOrNull(disk.label());
}

std::string Controller::_shortcutPathForDisk(const Disk& disk, const Text& desktop) {
  return _getAliasPathForDisk(disk, desktop) + ".app";
}

void Controller::runApplescript(const platform::Script& source) {
  platform::service<platform::ScriptRunner>().run(source);
}

Text Controller::_encodeURLString(const std::string& string) {
  return addingPercentEscapes(string);
}

std::unique_ptr<platform::Image> Controller::_getImage() {
  auto& reader = platform::service<platform::ImageReader>();
  std::vector<std::string> folders;
  for (const auto& folder : {DirectoryFinder::LocalApplicationSupportDirectory,
                             DirectoryFinder::UserApplicationSupportDirectory}) {
    folders.push_back(textOrNull(folder()));
    if (auto image = reader.imageWithContentsOfFile(folders.back() + "/icon.ico")) {
      return image;
    }
  }
  for (const std::string& folder : folders) {
    if (auto image = reader.imageWithContentsOfFile(folder + "/icon.icns")) {
      return image;
    }
  }
  return nullptr;
}

void Controller::setImageInMainThread(const Disk& disk, const Text& desktop) {
  const std::string path = _shortcutPathForDisk(disk, desktop);
  const auto image = _getImage();
  auto& workspace = platform::service<platform::Workspace>();
  if (!image) {
    workspace.forgetIcon(path, desktop);
    return;
  }
  try {
    workspace.setIcon(*image, path, desktop);
  } catch (const platform::WorkspaceException& exception) {
    Logger::consolePeerMessage(std::string("Ooops could not set image with NSWorkspace! Reason: ") +
                               exception.what());
  }
}

bool Controller::SnowLeopardAndAbove() {
  return platform::service<platform::SystemVersion>().gestaltSystemVersion() >
         LAST_VERSION_BEFORE_SNOW_LEOPARD;
}

void Controller::_updateDiskUpdateTime(const Disk& event) {
  if (const DiskPtr mounted = _findMountedInternalDisk(event)) {
    mounted->setLastUpdateTime(now());
  }
}

void Controller::_checkUpdateTimesWhenDue() {
  const auto time = std::chrono::steady_clock::now();
  if (time < _nextCheck) {
    return;
  }
  // Like the timer: missed checks are skipped, and the rhythm is kept.
  const Time latest = _nextCheck + (time - _nextCheck) / LIVENESS_INTERVAL * LIVENESS_INTERVAL;
  _nextCheck = latest + LIVENESS_INTERVAL;
  {
    const LockGuard lock(_mutex);
    if (_disksKnownSince > latest) {
      // At its time, while the timer slept, the check would have found no disk.
      return;
    }
  }
  _checkUpdateTimesAndUnmountDisksIfNecessary();
}

void Controller::_checkUpdateTimesAndUnmountDisksIfNecessary() {
  const std::vector<DiskPtr> disks = mountedDisks();
  if (disks.empty()) {
    return;
  }
  const Disk::Date current = now();
  std::vector<DiskPtr> stale;
  for (const DiskPtr& disk : disks) {
    const std::chrono::duration<double> silence =
        current - disk->lastUpdateTime().value_or(current);
    if (silence.count() > DISK_EXPECTED_UPDATE_TIME_INTERVAL) {
      stale.push_back(disk);
      std::array<char, 64> seconds{};
      std::snprintf(seconds.data(), seconds.size(), "%f", silence.count());
      Logger::logPeerMessage("Disk " + textOrNull(disk->label()) + " has not been updated in " +
                                 seconds.data() + " seconds, so it is assumed to be unmounted!",
                             LogTypeInfo);
    }
  }
  for (const DiskPtr& disk : stale) {
    _unmountDisk(*disk);
  }
}

void Controller::recordMountedDisks() const {
  std::string text = "Mounted Disks\nstart\n";
  const Text desktop = DirectoryFinder::desktopDirectory();
  for (const DiskPtr& disk : mountedDisks()) {
    text += recordLine(_shortcutPathForDisk(*disk, desktop));
  }
  text += "end";
  if (const auto error = fileManager().writeAtomically(recordFilePath(), text)) {
    Logger::logMessage("Error writing file, reason: " + error->localizedDescription, LogTypeError);
  }
}

void Controller::deleteRecordedDisks() {
  const Text text = fileManager().contentsAtPath(recordFilePath(), RECORD_FILE_LIMIT).text;
  if (!text || !isUtf8(*text)) {
    return;
  }
  bool isInside = false;
  std::string_view rest = withoutLeadingBlanks(*text);
  while (!rest.empty()) {
    const std::string line(rest.substr(0, rest.find('\n')));
    rest = withoutLeadingBlanks(rest.substr(line.size()));
    if (line == "start") {
      isInside = true;
    } else if (line == "end") {
      isInside = false;
    } else if (isInside) {
      Logger::logMessage("Disk record " + line + " has been found. Delete the shortcut.",
                         LogTypeInfo);
      _deleteAliasAtPath(line, DirectoryFinder::desktopDirectory());
    }
  }
}

}  // namespace ravelin
