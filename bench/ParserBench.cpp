#include <benchmark/benchmark.h>

#include <string>

#include "Announcements.h"
#include "intake/EventParser.h"

namespace ravelin::bench {

namespace {

constexpr std::size_t LARGE_SIZE = 1400;

void parse(benchmark::State& state, const std::string& text) {
  const auto payload = bytesOf(text);
  for ([[maybe_unused]] const auto turn : state) {
    benchmark::DoNotOptimize(EventParser::parse(payload));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

std::string mountedAnnouncement() {
  std::string text = statusAnnouncement(1);
  return text.replace(text.find("disk_status"), std::string("disk_status").size(), "disk_mounted");
}

std::string largeLabel() {
  std::string text = statusAnnouncement(1);
  text.resize(LARGE_SIZE, 'x');
  return text;
}

std::string manyItems() {
  std::string text;
  while (text.size() < LARGE_SIZE) {
    text += "uuid:1;";
  }
  return text;
}

BENCHMARK_CAPTURE(parse, status, statusAnnouncement(1));
BENCHMARK_CAPTURE(parse, mounted, mountedAnnouncement());
BENCHMARK_CAPTURE(parse, large_label, largeLabel());
BENCHMARK_CAPTURE(parse, many_items, manyItems());
BENCHMARK_CAPTURE(parse, unknown_key, "vendor:none;" + statusAnnouncement(1));
BENCHMARK_CAPTURE(parse, not_ascii, statusAnnouncement(1) + "\xC3\xA9");

}  // namespace

}  // namespace ravelin::bench
