#pragma once

#include <string>

namespace ravelin::open {

/// Tells the user of the desktop. Both texts are plain and in valid UTF-8. Where nobody shows
/// notifications, nothing happens.
void notify(const std::string& summary, const std::string& body);

}  // namespace ravelin::open
