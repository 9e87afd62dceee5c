#include <benchmark/benchmark.h>

#include <string_view>

#include "platform/Service.h"
#include "platform/SystemLog.h"

namespace {

/// What the agent logs is formatted, but goes nowhere.
class SilentLog final : public ravelin::platform::SystemLog {
 public:
  void log(Level /*level*/, std::string_view messageTemplate) override {
    benchmark::DoNotOptimize(messageTemplate.data());
  }
};

}  // namespace

int main(int argc, char** argv) {
  SilentLog log;
  const ravelin::platform::Substitute<ravelin::platform::SystemLog> silence(log);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
