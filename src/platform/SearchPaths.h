#pragma once

#include <string>
#include <vector>

namespace ravelin::platform {

enum class SearchPathDirectory { desktop = 12, applicationSupport = 14 };
enum class SearchPathDomain { user = 1, local = 2 };

/// Where the system keeps a standard folder, the preferred place first; empty when it has none.
/// Absolute paths, found out afresh at every call; nothing is created. Any thread.
[[nodiscard]] std::vector<std::string> searchPathsForDirectoriesInDomains(
    SearchPathDirectory directory, SearchPathDomain domain);

}  // namespace ravelin::platform
