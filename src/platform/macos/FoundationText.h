#pragma once

#import <Foundation/Foundation.h>

#include <string_view>

#include "base/Text.h"

namespace ravelin::platform {

/// The text as an object of Foundation's, which lasts as long as the autorelease pool around the
/// call; nil when it is not UTF-8. Any thread.
[[nodiscard]] NSString* stringOf(std::string_view text);

/// The text in UTF-8, its NULs included, and what has no UTF-8 (half a surrogate pair) replaced;
/// null for nil. Any thread.
[[nodiscard]] Text textOf(NSString* string);

}  // namespace ravelin::platform
