#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Text.h"

namespace ravelin::platform {

/// Why a file operation failed: the system's description of the error, for people.
struct FileError {
  std::string localizedDescription;
};

/// The file system. Paths are absolute; one that holds a NUL names nothing, and every operation on
/// it fails. Any thread.
///
/// The operations "beneath" a folder are for paths that strangers had a say in. The folder itself
/// may be reached through links, but from there on the path must lead downwards: a component "..",
/// a symbolic link on the way, or a path that does not begin with the folder makes the operation
/// fail without touching anything. An absent folder or path fails likewise.
class FileManager {
 public:
  virtual ~FileManager() = default;

  /// Makes the folder, and the missing ones above it. True when it is there afterwards.
  virtual bool createDirectoryAtPath(const std::string& path) = 0;

  /// Whether there is something at the path, links followed.
  virtual bool fileExistsAtPath(const std::string& path) = 0;

  /// The whole content of a file, or null when it cannot be read.
  virtual Text contentsAtPath(const std::string& path) = 0;

  /// Replaces the file by the content, wholly or not at all. Null on success.
  virtual std::optional<FileError> writeAtomically(const std::string& path,
                                                   std::string_view content) = 0;

  /// Whether there is something at the path; a link there counts by itself, wherever it leads.
  virtual bool fileExistsAtPath(const std::string& path, const Text& beneath) = 0;

  /// The whole content of the file at the path, or null when it cannot be read; a link there is not
  /// followed.
  virtual Text contentsAtPath(const std::string& path, const Text& beneath) = 0;

  /// Removes the file or link at the path; never a folder. Null on success, an error also when
  /// nothing is there.
  virtual std::optional<FileError> removeItemAtPath(const std::string& path,
                                                    const Text& beneath) = 0;

  /// Makes the file (mode 0644) or replaces the one that is there, wholly or not at all: it is
  /// written under a temporary name beside it, then renamed. Never replaces a folder, makes no
  /// folder, leaves no temporary file behind. Null on success.
  virtual std::optional<FileError> writeAtomically(const std::string& path, const Text& beneath,
                                                   std::string_view content) = 0;
};

}  // namespace ravelin::platform
