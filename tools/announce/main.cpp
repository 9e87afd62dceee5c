#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Announcement.h"
#include "OptionReader.h"
#include "Options.h"
#include "Sender.h"
#include "Waiter.h"
#include "base/Visible.h"
#include "common/CommandLine.h"
#include "common/Failure.h"

namespace ravelin::announce {
namespace {

using Clock = std::chrono::steady_clock;

/// The most that a UDP datagram over IPv4 carries, in bytes.
constexpr std::size_t MAXIMAL_SIZE = 65507;

/// How far the sending may fall behind its pace and still catch up in one burst.
constexpr std::chrono::milliseconds MAXIMAL_DELAY{10};

std::string textOf(const Options& options, std::uint32_t disk) {
  if (const auto* const raw = std::get_if<std::string>(&options.content)) {
    return *raw;
  }
  return std::get<Announcement>(options.content)
      .text(options.disks ? std::string("-").append(std::to_string(disk)) : "");
}

/// Sends one round, or rounds until a signal comes.
std::optional<Failure> sendRounds(const Options& options, const Sender& sender) {
  const std::chrono::nanoseconds gap =
      std::chrono::nanoseconds(std::chrono::seconds(1)) / options.perSecond;
  Waiter waiter;
  if (options.every) {
    waiter.heedSignals();
  }
  Clock::time_point round = Clock::now();
  Clock::time_point due = round;
  while (waiter.waitUntil(round)) {
    for (std::uint32_t disk = 1; disk <= options.disks.value_or(1); ++disk) {
      due = std::max(due, Clock::now() - MAXIMAL_DELAY);
      if (!waiter.waitUntil(due)) {
        return std::nullopt;
      }
      due += gap;
      const std::string text = textOf(options, disk);
      if (auto failure = sender.send(text)) {
        return failure;
      }
      if (!options.quiet) {
        if (auto failure = print(visible(text) + "\n")) {
          return failure;
        }
      }
    }
    if (!options.every) {
      break;
    }
    round = std::max(round + *options.every, Clock::now());
  }
  return std::nullopt;
}

std::optional<Failure> send(Options options) {
  auto opened = Sender::open(options.host, options.port, options.interface, options.timeToLive);
  if (const auto* const failure = std::get_if<Failure>(&opened)) {
    return *failure;
  }
  const auto& sender = std::get<Sender>(opened);
  if (auto* const announcement = std::get_if<Announcement>(&options.content);
      announcement != nullptr && announcement->lacks(Key::ip)) {
    const auto local = sender.localAddress();
    if (const auto* const failure = std::get_if<Failure>(&local)) {
      return *failure;
    }
    announcement->give(Key::ip, std::get<std::string>(local));
  }
  const std::size_t longest = textOf(options, options.disks.value_or(1)).size();
  if (longest > MAXIMAL_SIZE) {
    return Failure{MISUSED, "the announcement has " + std::to_string(longest) +
                                " bytes, and a datagram holds no more than " +
                                std::to_string(MAXIMAL_SIZE)};
  }
  return sendRounds(options, sender);
}

}  // namespace
}  // namespace ravelin::announce

int main(int count, char** arguments) {
  using namespace ravelin;
  using namespace ravelin::announce;
  OptionReader reader;
  return reader.line().run(count, arguments,
                           [&](const std::vector<std::string>& words) -> std::optional<Failure> {
                             auto options = reader.options(words);
                             if (const auto* const failure = std::get_if<Failure>(&options)) {
                               return *failure;
                             }
                             return send(std::get<Options>(std::move(options)));
                           });
}
