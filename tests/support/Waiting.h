#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "platform/RunLoop.h"

namespace ravelin::test {

/// Long enough for anything that is going to happen at all.
inline constexpr std::chrono::seconds PATIENCE{20};

/// Runs the main thread's run loop until the condition holds; false when it never does.
template <class Condition>
[[nodiscard]] bool runUntil(const Condition& condition, std::chrono::seconds patience = PATIENCE) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    platform::RunLoop::main().runOnce(platform::RunLoop::Seconds(0.005));
  }
  return true;
}

/// Lets the main thread's run loop do all that has been handed over so far.
inline void settle() {
  bool isSettled = false;
  platform::RunLoop::main().perform([&] { isSettled = true; });
  EXPECT_TRUE(runUntil([&] { return isSettled; }));
}

/// Waits, without running the run loop, until the condition holds; false when it never does.
template <class Condition>
[[nodiscard]] bool waitUntil(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace ravelin::test
