#pragma once

#include <string_view>

namespace ravelin::platform {

/// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing beyond
/// U+10FFFF. Any thread.
[[nodiscard]] bool isUtf8(std::string_view bytes);

}  // namespace ravelin::platform
