#pragma once

namespace ravelin::fakes {

/// Makes a function one that the system's libraries export, so that it can be looked up by its
/// name. For the length of the process.
class SystemFunction {
 public:
  template <class Function>
  SystemFunction(const char* name, Function* function)
      : SystemFunction(name, reinterpret_cast<void*>(function)) {}

 private:
  SystemFunction(const char* name, void* function);
};

}  // namespace ravelin::fakes
