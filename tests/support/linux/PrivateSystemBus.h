#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace ravelin::test {

/// A message bus of the test's own in the place of the system bus, with a session manager on it
/// that plays logind and has one session, "c1", which is this process's.
class PrivateSystemBus {
 public:
  PrivateSystemBus() {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + _socket()).c_str(), 1);
    ::setenv("XDG_SESSION_ID", "c1", 1);
    start();
  }
  ~PrivateSystemBus() { stop(); }
  PrivateSystemBus(const PrivateSystemBus&) = delete;
  PrivateSystemBus& operator=(const PrivateSystemBus&) = delete;

  void start() {
    _bus = spawn({"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile",
                  "--address=unix:path=" + _socket()});
    waitFor([this] { return _accepts(); }, "the bus");
    _logind = spawn({"/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"});
    waitFor(
        [] {
          return call("/org/freedesktop/login1", "org.freedesktop.DBus.Mock.AddSession",
                      {"string:c1", "string:seat0", "uint32:1000", "string:user", "boolean:true"});
        },
        "the session manager");
  }

  void stop() {
    for (pid_t* process : {&_logind, &_bus}) {
      if (*process > 0) {
        ::kill(*process, SIGKILL);
        ::waitpid(*process, nullptr, 0);
        *process = -1;
      }
    }
    ::unlink(_socket().c_str());
  }

  bool setActive(bool active) {
    return call("/org/freedesktop/login1/session/c1", "org.freedesktop.DBus.Properties.Set",
                {"string:org.freedesktop.login1.Session", "string:Active",
                 std::string("variant:boolean:") + (active ? "true" : "false")});
  }

 private:
  static pid_t spawn(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
      arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    const int error =
        ::posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      throw std::runtime_error("cannot start " + words[0]);
    }
    return process;
  }

  static bool call(const std::string& path, const std::string& method,
                   const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"/usr/bin/dbus-send",
                                   "--system",
                                   "--print-reply",
                                   "--dest=org.freedesktop.login1",
                                   path,
                                   method};
    words.insert(words.end(), arguments.begin(), arguments.end());
    int status = -1;
    ::waitpid(spawn(words), &status, 0);
    return status == 0;
  }

  template <class Condition>
  static void waitFor(const Condition& condition, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) {
        throw std::runtime_error(what + " does not come up");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }

  [[nodiscard]] std::string _socket() const { return _folder.path() + "/bus"; }

  [[nodiscard]] bool _accepts() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, _socket().c_str(), sizeof address.sun_path - 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool accepted =
        ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(descriptor);
    return accepted;
  }

  TemporaryDirectory _folder;
  pid_t _bus = -1;
  pid_t _logind = -1;
};

}  // namespace ravelin::test
