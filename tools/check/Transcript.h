#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Colours.h"
#include "Finding.h"
#include "ImaginedAgent.h"
#include "Target.h"
#include "common/Failure.h"

namespace ravelin::check {

/// A datagram as it came in.
struct Heard {
  std::chrono::system_clock::time_point time;
  std::string sender;  ///< address and port
  Target target;       ///< without a group for one that was sent to this machine alone
  std::span<const std::byte> payload;
};

/// Prints what is heard, at once: for people in some lines each, for programs as one JSON value in
/// a line. Whatever bytes come in, what is printed is printable.
class Transcript {
 public:
  Transcript(bool json, const Colours& colours) : _json(json), _colours(colours) {}

  /// What is listened to, and what is not seen. Null unless it cannot be printed; likewise below.
  [[nodiscard]] std::optional<Failure> begin(const Findings& findings) const;

  [[nodiscard]] std::optional<Failure> add(const Heard& heard,
                                           const ImaginedAgent::Judgement& judgement);

  /// How much was heard in that time.
  [[nodiscard]] std::optional<Failure> end(std::chrono::duration<double> passed) const;

  /// How many complete announcements have come.
  [[nodiscard]] std::size_t complete() const { return _complete; }

 private:
  [[nodiscard]] std::string _textOf(const Heard& heard, const Verdict& verdict) const;

  bool _json;
  Colours _colours;
  std::size_t _complete = 0;
  std::size_t _passedOver = 0;
};

}  // namespace ravelin::check
