#include "base/Precondition.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace ravelin {

namespace {

void writeToStandardError(std::string_view message) {
  // There is nobody left to be told of a failure.
  static_cast<void>(
      std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data()));
}

std::atomic<PreconditionReport> gReport = writeToStandardError;

}  // namespace

void setPreconditionReport(PreconditionReport report) { gReport = report; }

void preconditionFailed(std::string_view operation, std::string_view condition) {
  std::string message = "Precondition failed in ";
  message.append(operation).append(": ").append(condition);
  gReport.load()(message);
  std::abort();
}

}  // namespace ravelin
