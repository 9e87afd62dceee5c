#include "ConfigurationFile.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "ConfigurationCheck.h"
#include "common/InQuotes.h"
#include "core/Configuration.h"
#include "platform/FileManager.h"
#include "platform/PropertyListFault.h"
#include "platform/SearchPaths.h"
#include "platform/Service.h"

namespace ravelin::check {

using platform::FileManager;
using platform::SearchPathDirectory;
using platform::SearchPathDomain;

namespace {

/// Where the file would be in the agent's support folder, for each of the domain's folders.
std::vector<std::string> placesIn(SearchPathDomain domain) {
  auto places =
      platform::searchPathsForDirectoriesInDomains(SearchPathDirectory::applicationSupport, domain);
  for (std::string& place : places) {
    place.append("/")
        .append(platform::SUPPORT_FOLDER_NAME)
        .append("/")
        .append(Configuration::FILE_NAME);
  }
  return places;
}

}  // namespace

ConfigurationFile ConfigurationFile::at(const std::string& path) {
  ConfigurationFile file;
  file.path = path;
  const auto contents =
      platform::service<FileManager>().contentsAtPath(path, FileManager::CONTENT_LIMIT);
  file.isThere = !contents.isAbsent();
  if (contents.error) {
    file.fault = "it cannot be read: " + contents.error->localizedDescription;
  } else if (contents.text) {
    file.fault = platform::faultOfPropertyList(*contents.text).value_or("");
    file.dictionary = platform::dictionaryWithContents(*contents.text);
  }
  return file;
}

Findings ConfigurationFile::findings() const {
  const Details details{{"file", path}};
  if (!isThere) {
    return {wrong("file-missing", "there is no file " + path, details)};
  }
  if (!dictionary) {
    return {wrong("file-unusable",
                  path + " is of no use to the agent, as if it were not there: " + fault,
                  {{"file", path}, {"fault", fault}})};
  }
  if (dictionary->empty()) {
    return {wrong("file-empty",
                  "the dictionary in " + path + " is empty: the agent listens nowhere", details)};
  }
  Findings found = checkConfiguration(*dictionary);
  for (Finding& finding : found) {
    finding.details.emplace("file", path);
  }
  return found;
}

ConfigurationFiles ConfigurationFiles::find() {
  ConfigurationFiles files;
  for (const auto domain : {SearchPathDomain::user, SearchPathDomain::local}) {
    const auto places = placesIn(domain);
    if (!places.empty()) {
      files.lookedAt.push_back(ConfigurationFile::at(places.front()));
      std::copy_if(std::next(places.begin()), places.end(), std::back_inserter(files.passedOver),
                   [](const std::string& place) {
                     return platform::service<FileManager>().fileExistsAtPath(place);
                   });
    }
  }
  // An empty dictionary of the user's gives way; the last one has nothing to give way to.
  const auto used = std::ranges::find_if(files.lookedAt, [](const ConfigurationFile& file) {
    return file.dictionary && !file.dictionary->empty();
  });
  files.inForce = used != files.lookedAt.end() ? &*used : nullptr;
  return files;
}

Findings ConfigurationFiles::findings() const {
  Findings found;
  for (const ConfigurationFile& file : lookedAt) {
    const Details details{{"file", file.path}};
    if (&file == inForce) {
      found.push_back(ok("file-in-force", file.path + " is in force", details));
    } else if (!file.isThere) {
      found.push_back(note("file-not-there", file.path + " is not there", details));
    } else if (inForce != nullptr && file.dictionary && !file.dictionary->empty()) {
      found.push_back(
          note("file-not-used", file.path + " is not used, as the other one goes first", details));
    } else {
      Findings faults = file.findings();
      std::ranges::move(faults, std::back_inserter(found));
    }
  }
  for (const std::string& path : passedOver) {
    found.push_back(note("file-passed-over",
                         path + " is there, but the agent does not look into that folder, as " +
                             lookedAt.back().path + " would go first",
                         {{"file", path}}));
  }
  if (inForce == nullptr) {
    found.push_back(
        wrong("no-configuration", "no configuration is in force: the agent listens nowhere"));
    return found;
  }
  Findings inside = inForce->findings();
  std::ranges::move(inside, std::back_inserter(found));
  return found;
}

}  // namespace ravelin::check
