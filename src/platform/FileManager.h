#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"
#include "platform/Service.h"

namespace ravelin::platform {

/// Why a file operation failed: the system's description of the error, for people.
struct FileError {
  std::string localizedDescription;
};

/// What reading a file came to: its content, nothing (there is no such file), or an error.
struct FileContents {
  Text text;                       ///< the whole content, or null where there is none to be had
  std::optional<FileError> error;  ///< why a file that is there, or may be, could not be read

  /// Whether there is nothing at the path, as far as the system can tell.
  [[nodiscard]] bool isAbsent() const { return !text && !error; }
};

/// What a look for shortcuts beneath a folder has come to. Names are paths from that folder on.
struct ShortcutListing {
  /// Where it has been stopped, and why: a folder with a slash at its end, or empty for the first.
  struct Failure {
    std::string name;
    FileError error;
  };

  std::vector<std::string> names;
  std::vector<Failure> failures;
};

/// The file system. Paths are absolute; one that holds a NUL names nothing, and every operation on
/// it fails. Any thread.
///
/// The operations with a folder `beneath` which the path must lie are for paths that strangers had
/// a say in. The folder itself may be reached through links, but from there on the path must lead
/// downwards: a component "..", a symbolic link on the way, another file system, or a path that
/// does not begin with the folder makes the operation fail without touching anything. An absent
/// folder or path fails likewise.
///
/// Those for shortcuts never harm what is the user's. A shortcut is what has this system's mark: a
/// first line, or an attribute. Depending on the system it is a file, or a folder with content of
/// its own. Everything else is the user's: other files, links, folders, what cannot be read.
class FileManager {
 public:
  /// What is larger is not worth the memory, as a rule.
  static constexpr std::size_t CONTENT_LIMIT = std::size_t{16} * 1024 * 1024;

  virtual ~FileManager() = default;

  /// Makes the folder, and the missing ones above it. True when it is there afterwards.
  virtual bool createDirectoryAtPath(const std::string& path) = 0;

  /// Whether there is something at the path, links followed. False also when the system does not
  /// let this process look.
  virtual bool fileExistsAtPath(const std::string& path) = 0;

  /// Reads the whole file, links followed. A file of more bytes than the limit is an error, and so
  /// is what is no file.
  virtual FileContents contentsAtPath(const std::string& path, std::size_t limit) = 0;

  /// Replaces the file by the content, wholly or not at all. Null on success.
  virtual std::optional<FileError> writeAtomically(const std::string& path,
                                                   std::string_view content) = 0;

  /// Whether there is something at the path; a link there counts by itself, wherever it leads.
  /// False also where nothing can be done at the path.
  virtual bool itemExistsAtPath(const std::string& path, const Text& beneath) = 0;

  /// Reads the whole file at the path, at most CONTENT_LIMIT; a link there is not followed, and is
  /// an error like everything else that is no file.
  virtual FileContents contentsOfItemAtPath(const std::string& path, const Text& beneath) = 0;

  /// Makes the path free: removes the shortcut that is there, moves anything else to the user's
  /// trash. Null when nothing is there any more; otherwise what is there stays. May take some
  /// seconds.
  virtual std::optional<FileError> makeWayAtPath(const std::string& path, const Text& beneath) = 0;

  /// Removes the shortcut at the path, with its content where it is a folder, in which no link is
  /// followed, or what is left of one. Null on success, an error also when there is none.
  virtual std::optional<FileError> removeShortcutAtPath(const std::string& path,
                                                        const Text& beneath) = 0;

  /// The shortcuts beneath the folder, and what an agent that was killed has left of some: looked
  /// for in that folder and in those in it, so far down as is reasonable. A folder that is not
  /// there has none.
  virtual ShortcutListing shortcutsBeneath(const std::string& folder) = 0;

  /// Makes a shortcut that is a file with the content (mode 0644), or replaces the shortcut that is
  /// there, wholly or not at all: it is written under a temporary name beside it, then renamed.
  /// Never replaces anything else, makes no folder, leaves no temporary file behind. Where the mark
  /// is a first line, the content must have it. Null on success.
  virtual std::optional<FileError> writeShortcutAtPath(const std::string& path, const Text& beneath,
                                                       std::string_view content) = 0;
};

template <>
FileManager& native<FileManager>();

}  // namespace ravelin::platform
