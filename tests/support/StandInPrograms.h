#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/Service.h"
#include "platform/SystemPrograms.h"
#include "support/TemporaryDirectory.h"

namespace ravelin::test {

/// Takes the place of the system's programs for its lifetime: real programs, which note how they
/// are called and then do what the test has told them; at first they succeed without a word.
class StandInPrograms final : public platform::SystemPrograms {
 public:
  StandInPrograms() {
    for (const char* name : {"mount", "umount", "mkdir", "rmdir"}) {
      tell(name, "");
    }
  }

  /// Has the program do this, in the language of the shell.
  void tell(const std::string& name, const std::string& commands) const {
    const std::string path = _pathOf(name);
    // A program that is being written must not be one that is being run.
    std::filesystem::remove(path);
    std::ofstream(path) << "#!/bin/sh\n{ printf '%s' " << name
                        << "; [ $# -eq 0 ] || printf ' [%s]' \"$@\"; echo; } >>'" << _calls << "'\n"
                        << commands << '\n';
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  void remove(const std::string& name) const { std::filesystem::remove(_pathOf(name)); }

  /// What "mount" without arguments lists; with arguments it goes on with the commands.
  void list(const std::string& listing, const std::string& otherwise = "") const {
    std::ofstream(_listing, std::ios::binary) << listing;
    tell("mount", "[ $# -gt 0 ] || { cat '" + _listing + "'; exit; }\n" + otherwise);
  }

  /// The parts of the listing without regard to case.
  void setCaseless(std::vector<platform::MountListing::Stretch> caseless) {
    _caseless = std::move(caseless);
  }

  /// The calls so far, as "name [argument] [argument]", which are then forgotten.
  std::vector<std::string> takeCalls() const {
    std::vector<std::string> calls;
    std::ifstream file(_calls);
    for (std::string line; std::getline(file, line);) {
      calls.push_back(line);
    }
    file.close();
    std::filesystem::remove(_calls);
    return calls;
  }

  platform::MountListing mountTable() override {
    std::string text = _run("mount", {}, platform::ChildProcesses::Output::collected).output;
    return {.text = std::move(text), .caseless = _caseless};
  }
  platform::ChildResult mountGuestShare(const std::string& server, const std::string& share,
                                        const std::string& folder) override {
    return _run("mount", {"-t", "smbfs", "//guest:@" + server + "/" + share, folder},
                platform::ChildProcesses::Output::collected);
  }
  platform::ChildResult umount(const std::string& path) override {
    return _run("umount", {path}, platform::ChildProcesses::Output::inherited);
  }
  platform::ChildResult mkdir(const std::string& path) override {
    return _run("mkdir", {path}, platform::ChildProcesses::Output::collected);
  }
  platform::ChildResult rmdir(const std::string& path) override {
    return _run("rmdir", {path}, platform::ChildProcesses::Output::collected);
  }

 private:
  [[nodiscard]] std::string _pathOf(const std::string& name) const {
    return _directory.path() + "/" + name;
  }

  platform::ChildResult _run(const std::string& name, const std::vector<std::string>& arguments,
                             platform::ChildProcesses::Output output) const {
    return platform::service<platform::ChildProcesses>().run(_pathOf(name), arguments, output);
  }

  const TemporaryDirectory _directory;
  const std::string _calls = _directory.path() + "/calls";
  const std::string _listing = _directory.path() + "/listing";
  std::vector<platform::MountListing::Stretch> _caseless;
  const platform::Substitute<platform::SystemPrograms> _inForce{*this};
};

}  // namespace ravelin::test
