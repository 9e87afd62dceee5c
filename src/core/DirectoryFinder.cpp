#include "core/DirectoryFinder.h"

#include <filesystem>

#include "platform/FileManager.h"
#include "platform/Service.h"

namespace ravelin {

using platform::SearchPathDirectory;
using platform::SearchPathDomain;

Text DirectoryFinder::_findOrCreateDirectory(SearchPathDirectory directory,
                                             SearchPathDomain inDomain,
                                             const Text& appendPathComponent) {
  const auto found = platform::searchPathsForDirectoriesInDomains(directory, inDomain);
  if (found.empty()) {
    return std::nullopt;
  }
  std::filesystem::path path = found.front();
  if (appendPathComponent) {
    path /= *appendPathComponent;
  }
  auto& fileManager = platform::service<platform::FileManager>();
  return fileManager.createDirectoryAtPath(path.string()) ? Text(path.string()) : std::nullopt;
}

Text DirectoryFinder::desktopDirectory() {
  auto found = platform::searchPathsForDirectoriesInDomains(SearchPathDirectory::desktop,
                                                            SearchPathDomain::user);
  return found.empty() ? std::nullopt : Text(std::move(found.front()));
}

Text DirectoryFinder::LocalApplicationSupportDirectory() {
  return _findOrCreateDirectory(SearchPathDirectory::applicationSupport, SearchPathDomain::local,
                                std::string(platform::SUPPORT_FOLDER_NAME));
}

Text DirectoryFinder::UserApplicationSupportDirectory() {
  return _findOrCreateDirectory(SearchPathDirectory::applicationSupport, SearchPathDomain::user,
                                std::string(platform::SUPPORT_FOLDER_NAME));
}

std::string DirectoryFinder::diskMountDirectory(const Text& label) {
  return textOrNull(UserApplicationSupportDirectory()) + "/" + textOrNull(label);
}

}  // namespace ravelin
