#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "base/PercentEscaping.h"
#include "fuzz/Require.h"
#include "open/ShareUrl.h"
#include "open/ShortcutEntry.h"
#include "platform/linux/GioTypes.h"
#include "platform/linux/shortcut/DesktopEntry.h"
#include "platform/scripts/ShortcutScript.h"

namespace {

using ravelin::KeyFile;
using ravelin::String;
using ravelin::fuzz::require;
using ravelin::open::urlInEntry;

/// Whether these are four numbers below 256, read letter by letter.
bool isAddress(std::string_view text) {
  std::size_t numbers = 0;
  int number = -1;  // before its first digit
  for (const char character : std::string(text) + ".") {
    if (character == '.') {
      if (number < 0 || number > 255) {
        return false;
      }
      ++numbers;
      number = -1;
    } else if (character < '0' || character > '9' || number == 0 || number > 255) {
      return false;
    } else {
      number = std::max(number, 0) * 10 + (character - '0');
    }
  }
  return numbers == 4;
}

/// Whether a disk with this label has a shortcut that may be opened.
bool isShareName(std::string_view label) {
  return !label.empty() && label != "." && label != ".." &&
         std::ranges::all_of(label, [](char character) {
           return character >= ' ' && character <= '~' &&
                  std::string_view("/?\\\"").find(character) == std::string_view::npos;
         });
}

/// What is opened is one share of one address as guest, and would be written like this again.
void checkUrl(const std::string& url) {
  const std::string start = "smb://guest:@";
  require(url.starts_with(start));
  const std::size_t slash = url.find('/', start.size());
  require(slash != std::string::npos && url.rfind('/') == slash);
  const std::string address = url.substr(start.size(), slash - start.size());
  const std::string label = ravelin::removingPercentEscapes(url.substr(slash + 1));
  require(isAddress(address) && isShareName(label));
  const ravelin::platform::ShortcutScript script{
      .ipAddress = address, .encodedLabel = ravelin::addingPercentEscapes(label), .label = label};
  require(script.url() == url);
}

/// GLib's reader, which sees to desktop entries everywhere, finds the same in it, where it does not
/// mind the keys that do not count here.
void checkEntry(const std::string& entry, const std::string& url) {
  const KeyFile file(g_key_file_new());
  if (g_key_file_load_from_data(file.get(), entry.data(), entry.size(), G_KEY_FILE_NONE, nullptr) ==
      FALSE) {
    return;
  }
  const auto value = [&file](const char* key) {
    const String text(g_key_file_get_string(file.get(), G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
    return text == nullptr ? std::string("(none)") : std::string(text.get());
  };
  require(value("URL") == url && value("Type") == "Link");
}

/// What the agent writes is opened exactly when it leads to one share.
void checkShortcut(const std::string& label, const std::string& address) {
  const auto encoded = ravelin::addingPercentEscapes(label);
  const ravelin::platform::ShortcutScript script{
      .ipAddress = address, .encodedLabel = encoded, .label = label};
  if (!encoded || (label + address).find('\0') != std::string::npos) {
    return;  // no announcement has such a label, and no shortcut is made of it
  }
  const std::string text =
      ravelin::platform::DesktopEntry{.name = label, .url = script.url()}.text();
  const auto url = urlInEntry(text.substr(text.find('\n') + 1));
  const auto* const opened = std::get_if<std::string>(&url);
  require((opened != nullptr) == (isAddress(address) && isShareName(label)));
  require(opened == nullptr || *opened == script.url());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const auto url = urlInEntry(text);
  if (const auto* const opened = std::get_if<std::string>(&url)) {
    checkUrl(*opened);
    checkEntry(text, *opened);
  }
  if (!ravelin::open::failureOfShareUrl(text)) {
    checkUrl(text);
  }
  const std::string::size_type end = std::min(text.find('\n'), text.size());
  checkShortcut(text.substr(std::min(end + 1, text.size())), text.substr(0, end));
  checkShortcut(text, "192.0.2.10");
  return 0;
}
