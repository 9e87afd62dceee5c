#include "Front.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <iostream>
#include <optional>

#include "platform/StandardDescriptors.h"

namespace ravelin::volumes {

namespace {

using Situation = platform::VolumeSituation;

/// Longer than any path or message.
constexpr std::size_t LONGEST_TEXT = 16384;

void leaveTheFront() {
  ::setsid();
  static_cast<void>(::chdir("/") == 0);
  // These end the front so that its work is undone, which takes some time.
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    std::signal(signal, SIG_IGN);
  }
  // As long as its output is open, the reader takes the front for running.
  const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  if (nothing < 0) {
    return;
  }
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::dup2(nothing, descriptor);
  }
  ::close(nothing);
}

/// Waits for the answer; null when this process's output has no reader any more.
std::optional<Answer> awaitAnswer(int background) {
  // Only the end of the output is watched.
  std::array<pollfd, 2> watched{{{background, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  do {
    while (::poll(watched.data(), watched.size(), -1) < 0 && errno == EINTR) {
    }
    if (watched[0].revents == 0 && (watched[1].revents & (POLLERR | POLLHUP)) != 0) {
      return std::nullopt;
    }
  } while (watched[0].revents == 0);
  std::array<char, 1 + LONGEST_TEXT> message{};
  const ssize_t size = ::recv(background, message.data(), message.size(), 0);
  if (size < 1) {
    return Answer{.situation = Situation::failed, .text = "the helper has ended early"};
  }
  return Answer{.situation = static_cast<Situation>(message[0]),
                .text = std::string(message.data() + 1, static_cast<std::size_t>(size) - 1)};
}

}  // namespace

bool Connection::deliver(const Answer& answer) const {
  std::string message{static_cast<char>(answer.situation)};
  message += answer.text.substr(0, LONGEST_TEXT);
  if (::send(_descriptor, message.data(), message.size(), MSG_NOSIGNAL) < 0) {
    return false;
  }
  char printed = 0;
  ssize_t size = 0;
  while ((size = ::recv(_descriptor, &printed, sizeof printed, 0)) < 0 && errno == EINTR) {
  }
  return size > 0;
}

int conclude(const Answer& answer) {
  std::cout << answer.text << std::flush;
  return static_cast<int>(std::cout ? answer.situation : Situation::failed);
}

int runInBackground(const std::function<void(const Connection& front)>& work) {
  platform::openStandardDescriptors();
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return conclude({.situation = Situation::failed, .text = "the helper has no connection"});
  }
  const pid_t background = ::fork();
  if (background == 0) {
    ::close(ends[0]);
    leaveTheFront();
    work(Connection(ends[1]));
    return 0;
  }
  ::close(ends[1]);
  if (background < 0) {
    return conclude({.situation = Situation::failed, .text = "the helper cannot be forked"});
  }
  const auto answer = awaitAnswer(ends[0]);
  const int status = answer ? conclude(*answer) : static_cast<int>(Situation::failed);
  if (answer && std::cout) {
    ::send(ends[0], "", 1, MSG_NOSIGNAL);
  }
  return status;
}

}  // namespace ravelin::volumes
