#pragma once

#include <sys/resource.h>

#include <stdexcept>

namespace ravelin::test {

/// For its lifetime the process may open no further descriptor.
class NoFreeDescriptors {
 public:
  NoFreeDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &_before);
    const rlimit none{.rlim_cur = 0, .rlim_max = _before.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) {
      throw std::runtime_error("the limit cannot be set");
    }
  }
  ~NoFreeDescriptors() { ::setrlimit(RLIMIT_NOFILE, &_before); }
  NoFreeDescriptors(const NoFreeDescriptors&) = delete;
  NoFreeDescriptors& operator=(const NoFreeDescriptors&) = delete;

 private:
  rlimit _before{};
};

}  // namespace ravelin::test
