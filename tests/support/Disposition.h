#pragma once

#include <csignal>

namespace ravelin::test {

/// Puts a way to take a signal in force for its lifetime.
class Disposition {
 public:
  Disposition(int signal, void (*handler)(int), int flags = 0) : _signal(signal) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    ::sigaction(signal, &action, &_before);
  }
  ~Disposition() { ::sigaction(_signal, &_before, nullptr); }
  Disposition(const Disposition&) = delete;
  Disposition& operator=(const Disposition&) = delete;

 private:
  int _signal;
  struct sigaction _before = {};
};

}  // namespace ravelin::test
