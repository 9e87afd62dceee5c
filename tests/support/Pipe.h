#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace ravelin::test {

/// A pipe, for a descriptor that is readable when the test wants it.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(_ends.data()), 0); }
  ~Pipe() {
    close(reader());
    closeWriter();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  [[nodiscard]] int reader() const { return _ends[0]; }
  void write() const { EXPECT_EQ(::write(_ends[1], "x", 1), 1); }
  void read() const {
    char byte = 0;
    EXPECT_EQ(::read(_ends[0], &byte, 1), 1);
  }
  void closeWriter() {
    if (const int writer = std::exchange(_ends[1], -1); writer != -1) {
      close(writer);
    }
  }

 private:
  std::array<int, 2> _ends = {-1, -1};
};

}  // namespace ravelin::test
