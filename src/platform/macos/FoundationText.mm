#include "platform/macos/FoundationText.h"

namespace ravelin::platform {

NSString* stringOf(std::string_view text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

Text textOf(NSString* string) {
  // A nil string would give nil here too, and that has no bytes.
  NSData* const bytes = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
  return bytes == nil
             ? std::nullopt
             : Text(std::in_place, static_cast<const char*>([bytes bytes]), [bytes length]);
}

}  // namespace ravelin::platform
