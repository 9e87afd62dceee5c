#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Announcements.h"
#include "controller/Controller.h"
#include "platform/FileManager.h"
#include "platform/Service.h"
#include "platform/scripts/ScriptRunner.h"

namespace ravelin::bench {

/// A desktop on which every script succeeds and every file operation finds nothing, at no cost.
class NoDesktop {
 private:
  class NoFiles final : public platform::FileManager {
   public:
    bool createDirectoryAtPath(const std::string& /*path*/) override { return true; }
    bool fileExistsAtPath(const std::string& /*path*/) override { return false; }
    platform::FileContents contentsAtPath(const std::string& /*path*/,
                                          std::size_t /*limit*/) override {
      return {};
    }
    std::optional<platform::FileError> writeAtomically(const std::string& /*path*/,
                                                       std::string_view /*content*/) override {
      return std::nullopt;
    }
    bool itemExistsAtPath(const std::string& /*path*/, const Text& /*beneath*/) override {
      return false;
    }
    platform::FileContents contentsOfItemAtPath(const std::string& /*path*/,
                                                const Text& /*beneath*/) override {
      return {};
    }
    std::optional<platform::FileError> makeWayAtPath(const std::string& /*path*/,
                                                     const Text& /*beneath*/) override {
      return std::nullopt;
    }
    std::optional<platform::FileError> removeShortcutAtPath(const std::string& /*path*/,
                                                            const Text& /*beneath*/) override {
      return std::nullopt;
    }
    std::optional<platform::FileError> writeShortcutAtPath(const std::string& /*path*/,
                                                           const Text& /*beneath*/,
                                                           std::string_view /*content*/) override {
      return std::nullopt;
    }
  };
  class NoScripts final : public platform::ScriptRunner {
    bool _execute(const platform::Script& /*script*/) override { return true; }
  };

  NoFiles _files;
  NoScripts _scripts;
  platform::Substitute<platform::FileManager> _noFiles{_files};
  platform::Substitute<platform::ScriptRunner> _noScripts{_scripts};
};

/// The real controller, whose steps can also be taken one by one.
class OpenController final : public Controller {
 public:
  using Controller::_mountDisk;
  using Controller::_processNextDiskEvent;
  using Controller::_unmountDisk;

  void server(Server& server, std::span<const std::byte> receivedData,
              std::span<const std::byte> fromAddress) override {
    ++_received;
    Controller::server(server, receivedData, fromAddress);
  }

  /// Mounts the disks with the numbers below that one.
  void mountAnnounced(std::size_t count) {
    for (std::size_t number = 0; number < count; ++number) {
      _mountDisk(announcedDisk(number));
    }
  }

  /// How many datagrams have come in.
  [[nodiscard]] std::size_t received() const { return _received; }

 private:
  std::size_t _received = 0;
};

}  // namespace ravelin::bench
