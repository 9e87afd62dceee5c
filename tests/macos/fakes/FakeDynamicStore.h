#pragma once

#include <string>
#include <vector>

namespace ravelin::fakes {

/// The system's dynamic store, while this lives: keys with texts as their values, and the sessions
/// that want to know of changes. A session is told by its run-loop source, once of all keys that
/// have changed until it is served. A pattern is an extended regular expression for the whole key.
/// One at a time; any thread may call it.
class FakeDynamicStore {
 public:
  /// The statuses that the system gives.
  enum Status { OK = 0, FAILED = 1001, INVALID_ARGUMENT = 1002, NO_STORE_SESSION = 2001 };

  FakeDynamicStore();
  ~FakeDynamicStore();
  FakeDynamicStore(const FakeDynamicStore&) = delete;
  FakeDynamicStore& operator=(const FakeDynamicStore&) = delete;

  /// Sets the value and tells, even if it is what it was.
  void set(const std::string& key, const std::string& value);

  /// Takes the value away and tells.
  void remove(const std::string& key);

  /// From now on sessions get no keys and patterns, and the status says why; OK ends that.
  void refuseKeys(Status status);

  /// From now on there are no new sessions; OK ends that.
  void refuseSessions(Status status);

  /// How many sessions are there.
  [[nodiscard]] int sessions() const;

  /// The names of the sessions that were ever made here.
  [[nodiscard]] std::vector<std::string> names() const;
};

}  // namespace ravelin::fakes
