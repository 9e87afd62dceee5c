#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Colours.h"
#include "Finding.h"

namespace ravelin::check {

/// All that was found, by topic. Whatever bytes the findings hold, what it gives is printable.
class Report {
 public:
  /// Adds findings at the end; a topic without any does not show. The topic is a word.
  void add(const std::string& topic, Findings findings);

  /// How many findings say that something is wrong.
  [[nodiscard]] std::size_t wrong() const;

  /// For people: a heading for each topic, a line for each finding.
  [[nodiscard]] std::string text(const Colours& colours) const;

  /// For programs: one JSON value, and a line feed.
  [[nodiscard]] std::string json() const;

 private:
  struct Topic {
    std::string name;
    Findings findings;
  };
  std::vector<Topic> _topics;
};

}  // namespace ravelin::check
