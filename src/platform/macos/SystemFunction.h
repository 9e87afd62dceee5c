#pragma once

#include <dlfcn.h>

namespace ravelin::platform {

/// A function of the libraries that this process has loaded, for those that are declared but that a
/// later system may lack; null where it does. Any thread.
template <class Function>
[[nodiscard]] Function* systemFunction(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

}  // namespace ravelin::platform
