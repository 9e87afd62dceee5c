#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

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
    platform::ShortcutListing shortcutsBeneath(const std::string& /*folder*/) override {
      return {};
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

}  // namespace ravelin::bench
