#pragma once

#include <string>
#include <vector>

namespace ravelin::fakes {

/// The Apple System Log, while this lives. What a client's filter does not let through (at first
/// everything beyond a notice) does not reach the service; the copy on standard error has
/// everything, in the form
///
///     Nov 21 09:00:00 host ident[process] <Level>: message
///
/// with a tab before the message's further lines. A client that two threads use at once is a data
/// race here, as it is there. One at a time.
class FakeLogService {
 public:
  struct Record {
    std::string sender;
    std::string facility;
    int level = 0;
    std::string message;
    bool operator==(const Record&) const = default;
  };

  FakeLogService();
  ~FakeLogService();
  FakeLogService(const FakeLogService&) = delete;
  FakeLogService& operator=(const FakeLogService&) = delete;

  /// What has reached the service. Any thread.
  [[nodiscard]] std::vector<Record> records() const;

  /// How many clients are open. Any thread.
  [[nodiscard]] int clients() const;

  /// From now on no client can be opened: there is none.
  void refuseClients();
};

}  // namespace ravelin::fakes
