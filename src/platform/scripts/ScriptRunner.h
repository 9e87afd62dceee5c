#pragma once

#include <variant>

#include "platform/Service.h"
#include "platform/scripts/AliasScript.h"
#include "platform/scripts/RemovalScript.h"
#include "platform/scripts/ShortcutScript.h"

namespace ravelin::platform {

/// The scripts that the agent runs on the desktop.
using Script = std::variant<ShortcutScript, RemovalScript, AliasScript>;

/// Runs scripts on the user's desktop. Main thread only.
class ScriptRunner {
 public:
  virtual ~ScriptRunner() = default;

  /// Runs the script; returns whether it ran without error. A script whose inserted values hold a
  /// double quote or a backslash is not run: they could end a text and become commands.
  bool run(const Script& script);

 private:
  /// Compiles and runs the source, or does to the desktop what the source says.
  virtual bool _execute(const Script& script) = 0;
};

template <>
ScriptRunner& native<ScriptRunner>();

}  // namespace ravelin::platform
