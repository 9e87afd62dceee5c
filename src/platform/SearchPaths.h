#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ravelin::platform {

enum class SearchPathDirectory { desktop = 12, applicationSupport = 14 };
enum class SearchPathDomain { user = 1, local = 2 };

/// The agent's own folder in those for application support.
inline constexpr std::string_view SUPPORT_FOLDER_NAME = "RavelinDisk";

/// Where the system keeps a standard folder, the preferred place first; empty when it has none.
/// Absolute paths, found out afresh at every call; nothing is created. Of several places for the
/// whole machine's application support the preferred one is the first that has the agent's own
/// folder, if one has it. Any thread.
[[nodiscard]] std::vector<std::string> searchPathsForDirectoriesInDomains(
    SearchPathDirectory directory, SearchPathDomain domain);

}  // namespace ravelin::platform
