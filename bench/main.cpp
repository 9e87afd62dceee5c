#include <benchmark/benchmark.h>

#include "SilentLog.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"

int main(int argc, char** argv) {
  ravelin::bench::SilentLog log;
  const ravelin::platform::Substitute<ravelin::platform::SystemLog> silence(log);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
