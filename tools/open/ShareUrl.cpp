#include "ShareUrl.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <string>

#include "base/PercentEscaping.h"

namespace ravelin::open {

namespace {

constexpr std::string_view SCHEME = "smb://";
constexpr std::string_view GUEST = "guest:@";

/// Four decimal numbers without zeros in front.
bool isIpv4Address(const std::string& text) {
  in_addr address{};
  // It reads up to a NUL only.
  return text.find('\0') == std::string::npos && ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

/// GVfs takes a slash for the end of the name, SMB a backslash, also where they are escaped.
bool mayNameShare(char character) {
  constexpr char LAST_CONTROL = 0x1F;
  constexpr char DELETE = 0x7F;
  return character > LAST_CONTROL && character != DELETE &&
         std::string_view("\"/\\").find(character) == std::string_view::npos;
}

const char* whyNoShare(std::string_view escaped) {
  if (escaped.find_first_of("/?#") != std::string_view::npos) {
    return "it leads further than to a share";
  }
  const std::string name = removingPercentEscapes(escaped);
  if (name.empty() || name == "." || name == "..") {
    return "it names no share";
  }
  if (addingPercentEscapes(name) != escaped || !std::ranges::all_of(name, mayNameShare)) {
    return "it has a name for a share that Ravelin Disk does not open";
  }
  return nullptr;
}

const char* whyNoShareUrl(std::string_view url) {
  if (!url.starts_with(SCHEME)) {
    return "it leads to something else than an SMB share";
  }
  url.remove_prefix(SCHEME.size());
  if (!url.starts_with(GUEST)) {
    return "it would log in as somebody else than the guest without a password";
  }
  url.remove_prefix(GUEST.size());
  const std::size_t end = std::min(url.find('/'), url.size());
  if (!isIpv4Address(std::string(url.substr(0, end)))) {
    return "it does not name its server by an IPv4 address";
  }
  url.remove_prefix(end);
  return whyNoShare(url.substr(std::min<std::size_t>(1, url.size())));
}

}  // namespace

std::optional<Failure> failureOfShareUrl(std::string_view url) {
  const char* const why = whyNoShareUrl(url);
  return why == nullptr ? std::nullopt : std::optional(Failure{FAILED, why});
}

}  // namespace ravelin::open
