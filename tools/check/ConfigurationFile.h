#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Finding.h"
#include "platform/PropertyList.h"

namespace ravelin::check {

/// A configuration file as the agent finds it.
struct ConfigurationFile {
  std::string path;
  bool isThere = false;
  std::string fault;  ///< why the agent cannot use what is there; empty where it can
  std::optional<platform::PropertyListDictionary> dictionary;  ///< where it can

  static ConfigurationFile at(const std::string& path);

  /// What is wrong with the file as a whole, and what is wrong in it.
  [[nodiscard]] Findings findings() const;
};

/// The files that the agent looks at and which of them it uses.
struct ConfigurationFiles {
  std::vector<ConfigurationFile> lookedAt;     ///< the one that goes first, first
  std::vector<std::string> passedOver;         ///< there, but where the agent does not look
  const ConfigurationFile* inForce = nullptr;  ///< one of the first; null where there is none

  /// Looks where the agent of this user and this environment does; nothing is created.
  static ConfigurationFiles find();

  ConfigurationFiles() = default;
  ConfigurationFiles(const ConfigurationFiles&) = delete;
  ConfigurationFiles& operator=(const ConfigurationFiles&) = delete;
  ConfigurationFiles(ConfigurationFiles&&) = default;
  ConfigurationFiles& operator=(ConfigurationFiles&&) = default;
  ~ConfigurationFiles() = default;

  [[nodiscard]] Findings findings() const;
};

}  // namespace ravelin::check
