#include "FakeLogService.h"

#include <asl.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

using ravelin::fakes::FakeLogService;

/// A client or a message.
struct __asl_object_s {
  explicit __asl_object_s(bool client) : isClient(client) {}

  const bool isClient;
  std::string ident;
  std::string facility;
  std::uint32_t options = 0;
  int filter = ASL_FILTER_MASK_UPTO(5);  // a notice
  std::map<std::string, std::string> keys;
  long lines = 0;  ///< not guarded: a client is for one thread at a time
};

namespace {

struct State {
  std::mutex mutex;
  std::vector<FakeLogService::Record> records;
  int clients = 0;
  bool refuses = false;
};
State& state() {
  static auto& instance = *new State;
  return instance;
}

const char* nameOf(int level) {
  static constexpr std::array NAMES{"Emergency", "Alert",  "Critical", "Error",
                                    "Warning",   "Notice", "Info",     "Debug"};
  return NAMES.at(static_cast<std::size_t>(level));
}

/// The message in its safe form.
std::string encoded(std::string_view message) {
  std::string text;
  for (const char character : message) {
    switch (character) {
      case '\b':
        text += "^H";
        break;
      case '\r':
      case '\n':
        text += "\n\t";
        break;
      default:
        text += character;
    }
  }
  return text;
}

void copyToStandardError(const std::string& sender, int level, std::string_view message) {
  std::array<char, 64> time{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::strftime(time.data(), time.size(), "%b %e %H:%M:%S", &parts);
  std::array<char, 256> host{};
  ::gethostname(host.data(), host.size() - 1);
  std::string line = time.data();
  line.append(" ").append(host.data()).append(" ").append(sender).append("[");
  line.append(std::to_string(::getpid())).append("] <").append(nameOf(level)).append(">: ");
  line.append(encoded(message)).append("\n");
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

std::string expanded(const char* format, va_list arguments) {
  char* text = nullptr;
  if (::vasprintf(&text, format, arguments) < 0) {
    return {};
  }
  const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
  return text;
}

}  // namespace

namespace ravelin::fakes {

FakeLogService::FakeLogService() {
  const std::lock_guard lock(state().mutex);
  state().records.clear();
  state().refuses = false;
}

FakeLogService::~FakeLogService() {
  const std::lock_guard lock(state().mutex);
  state().refuses = false;
}

std::vector<FakeLogService::Record> FakeLogService::records() const {
  const std::lock_guard lock(state().mutex);
  return state().records;
}

int FakeLogService::clients() const {
  const std::lock_guard lock(state().mutex);
  return state().clients;
}

void FakeLogService::refuseClients() {
  const std::lock_guard lock(state().mutex);
  state().refuses = true;
}

}  // namespace ravelin::fakes

extern "C" {

asl_object_t asl_open(const char* ident, const char* facility, uint32_t opts) {
  const std::lock_guard lock(state().mutex);
  if (state().refuses) {
    return nullptr;
  }
  auto* const client = new __asl_object_s(true);
  client->ident = ident == nullptr ? "" : ident;
  client->facility = facility == nullptr ? "" : facility;
  client->options = opts;
  ++state().clients;
  return client;
}

int asl_set_filter(asl_object_t client, int f) {
  return client == nullptr ? 0 : std::exchange(client->filter, f);
}

asl_object_t asl_new(uint32_t type) {
  return type == ASL_TYPE_MSG ? new __asl_object_s(false) : nullptr;
}

int asl_set(asl_object_t obj, const char* key, const char* value) {
  if (obj == nullptr || obj->isClient) {
    return -1;
  }
  obj->keys[key] = value;
  return 0;
}

int asl_log(asl_object_t client, asl_object_t msg, int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string message = expanded(format, arguments);
  va_end(arguments);
  // Without a client it goes to the service's default one.
  static auto& byDefault = *new __asl_object_s(true);
  auto& used = client == nullptr ? byDefault : *client;
  if (client != nullptr) {
    ++client->lines;
  }
  const auto sender = msg == nullptr ? std::map<std::string, std::string>::iterator()
                                     : msg->keys.find(ASL_KEY_SENDER);
  const std::string name =
      msg == nullptr || sender == msg->keys.end() ? used.ident : sender->second;
  if ((used.options & ASL_OPT_STDERR) != 0) {
    copyToStandardError(name, level, message);
  }
  if ((used.filter & (1 << level)) != 0) {
    const std::lock_guard lock(state().mutex);
    state().records.push_back({name, used.facility, level, message});
  }
  return 0;
}

void asl_release(asl_object_t obj) {
  if (obj != nullptr && obj->isClient) {
    const std::lock_guard lock(state().mutex);
    --state().clients;
  }
  delete obj;
}

}  // extern "C"
