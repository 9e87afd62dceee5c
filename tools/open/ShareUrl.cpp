#include "ShareUrl.h"

#include <algorithm>
#include <string>
#include <utility>

#include "base/InternetAddress.h"
#include "base/PercentEscaping.h"
#include "base/Text.h"
#include "common/InQuotes.h"

namespace ravelin::open {

namespace {

constexpr std::string_view SCHEME = "smb://";
constexpr std::string_view GUEST = "guest:@";

/// GVfs takes a slash for the end of the name, SMB a backslash, also where they are escaped.
bool mayNameShare(char character) {
  constexpr char LAST_CONTROL = 0x1F;
  constexpr char DELETE = 0x7F;
  return character > LAST_CONTROL && character != DELETE &&
         std::string_view("\"/\\").find(character) == std::string_view::npos;
}

constexpr const char* WAS_CHANGED = "; delete the shortcut, as somebody has changed it";
constexpr const char* NEEDS_LABEL = "; give the disk another label on the device";

Text whyNoShare(std::string_view escaped) {
  if (escaped.find_first_of("/?#") != std::string_view::npos) {
    return std::string("it leads further than to a share").append(NEEDS_LABEL);
  }
  const std::string name = removingPercentEscapes(escaped);
  if (name.empty() || name == "." || name == "..") {
    return std::string("it names no share").append(NEEDS_LABEL);
  }
  if (addingPercentEscapes(name) != escaped || !std::ranges::all_of(name, mayNameShare)) {
    return std::string("it has a name for a share that Ravelin Disk does not open")
        .append(NEEDS_LABEL);
  }
  return std::nullopt;
}

/// Divides what is behind the user at the first slash.
std::pair<std::string_view, std::string_view> divided(std::string_view url) {
  const std::size_t end = std::min(url.find('/'), url.size());
  return {url.substr(0, end), url.substr(std::min(end + 1, url.size()))};
}

Text whyNoShareUrl(std::string_view url) {
  if (!url.starts_with(SCHEME)) {
    return std::string("it leads to something else than an SMB share").append(WAS_CHANGED);
  }
  url.remove_prefix(SCHEME.size());
  if (!url.starts_with(GUEST)) {
    return std::string("it would log in as somebody else than the guest without a password")
        .append(WAS_CHANGED);
  }
  url.remove_prefix(GUEST.size());
  const auto [server, share] = divided(url);
  if (!isDottedAddress(std::string(server))) {
    return "the shortcut's address " + shortInQuotes(server) +
           " is no IPv4 address; have the device announce its own";
  }
  return whyNoShare(share);
}

}  // namespace

std::optional<Failure> failureOfShareUrl(std::string_view url) {
  const Text why = whyNoShareUrl(url);
  return why ? std::optional(Failure{FAILED, *why}) : std::nullopt;
}

ShareName nameInShareUrl(std::string_view url) {
  const auto [server, share] = divided(url.substr(SCHEME.size() + GUEST.size()));
  return {.server = std::string(server), .share = removingPercentEscapes(share)};
}

}  // namespace ravelin::open
