#include "platform/linux/gvfs/VolumeSituation.h"

#include <cstddef>
#include <string_view>

namespace ravelin::platform {

namespace {

/// How much of GVfs's message is shown, in bytes.
constexpr std::size_t SAYING_LIMIT = 300;

/// The text with a question mark for every character that is not printable ASCII.
std::string plainLine(std::string_view text) {
  constexpr unsigned char CONTINUATION_MASK = 0xC0;
  constexpr unsigned char CONTINUATION = 0x80;
  std::string line;
  for (const char character : text) {
    if (line.size() == SAYING_LIMIT) {
      return line + "...";
    }
    if (character >= ' ' && character <= '~') {
      line += character;
    } else if ((static_cast<unsigned char>(character) & CONTINUATION_MASK) != CONTINUATION) {
      line += '?';
    }
  }
  return line;
}

std::string_view meaningOf(VolumeSituation situation) {
  switch (situation) {
    case VolumeSituation::done:
      return "no error";
    case VolumeSituation::noServer:
      return "no SMB server answers at this address";
    case VolumeSituation::noSuchShare:
      return "the server has no such share";
    case VolumeSituation::notPermitted:
      return "the server does not permit guests to use this share";
    case VolumeSituation::alreadyMounted:
      return "the share is mounted already";
    case VolumeSituation::noGvfs:
      return "this session has no GVfs that can mount SMB shares";
    case VolumeSituation::noMountPoint:
      return "GVfs gives the share no place in the file system; its FUSE side is missing";
    case VolumeSituation::timedOut:
      return "it took too long";
    case VolumeSituation::notMounted:
      return "no mounted volume has this reference";
    case VolumeSituation::inUse:
      return "the volume is in use";
    case VolumeSituation::failed:
      return "GVfs could not do it";
    case VolumeSituation::noHelper:
      return "the program ravelin-disk-volumes-helper cannot be started";
    case VolumeSituation::notGuest:
      return "only SMB shares can be mounted, and only for users without a password";
    case VolumeSituation::noReferenceLeft:
      return "too many volumes are mounted";
  }
  return "unknown error";
}

}  // namespace

std::string commentOn(VolumeSituation situation, const std::string& saying) {
  std::string comment(meaningOf(situation));
  const bool isOpen = situation == VolumeSituation::failed || situation == VolumeSituation::inUse;
  if (isOpen && !saying.empty()) {
    comment.append(": ").append(plainLine(saying));
  }
  return comment;
}

}  // namespace ravelin::platform
