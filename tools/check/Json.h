#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/Visible.h"

namespace ravelin::check {

/// Keeps the order in which members are added.
using Json = nlohmann::ordered_json;

/// The text as a string of JSON, which takes UTF-8 only: bytes that are none, and control
/// characters, are shown as in messages.
inline Json jsonText(std::string_view text) { return visibleLine(text); }

}  // namespace ravelin::check
