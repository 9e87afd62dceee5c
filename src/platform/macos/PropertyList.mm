#include "platform/PropertyList.h"

#import <Foundation/Foundation.h>

#include <string>
#include <utility>

#include "base/Text.h"
#include "platform/macos/FoundationText.h"

namespace ravelin::platform {

namespace {

PropertyListValue valueOf(id object);

PropertyListArray arrayOf(NSArray* objects) {
  PropertyListArray values;
  for (id object in objects) {
    values.push_back(valueOf(object));
  }
  return values;
}

PropertyListDictionary dictionaryOf(NSDictionary* objects) {
  PropertyListDictionary values;
  for (NSString* key in objects) {
    values.emplace(textOrNull(textOf(key)), valueOf([objects objectForKey:key]));
  }
  return values;
}

PropertyListValue numberOf(NSNumber* number) {
  const char type = [number objCType][0];
  // Truths are kept as characters here, and no other number of a property list is.
  if (type == 'c' || type == 'B') {
    return PropertyListValue(static_cast<bool>([number boolValue]));
  }
  if (type == 'd' || type == 'f') {
    return PropertyListValue([number doubleValue]);
  }
  return PropertyListValue(std::int64_t{[number longLongValue]});
}

PropertyListValue valueOf(id object) {
  if ([object isKindOfClass:[NSString class]]) {
    return PropertyListValue(textOrNull(textOf(static_cast<NSString*>(object))));
  }
  if ([object isKindOfClass:[NSNumber class]]) {
    return numberOf(object);
  }
  if ([object isKindOfClass:[NSArray class]]) {
    return PropertyListValue(arrayOf(object));
  }
  if ([object isKindOfClass:[NSDictionary class]]) {
    return PropertyListValue(dictionaryOf(object));
  }
  return {};
}

/// What the content holds; nil when it is no property list in one of the two forms.
id listIn(NSData* content) {
  NSPropertyListFormat format{};
  @try {
    id list = [NSPropertyListSerialization propertyListWithData:content
                                                        options:NSPropertyListImmutable
                                                         format:&format
                                                          error:nullptr];
    // The system still reads a third form, the oldest, and takes almost any text for it.
    const bool isInForm =
        format == NSPropertyListXMLFormat_v1_0 || format == NSPropertyListBinaryFormat_v1_0;
    return isInForm ? list : nil;
  } @catch (NSException*) {
    return nil;
  }
}

std::optional<PropertyListDictionary> dictionaryIn(NSData* content) {
  id list = content == nil ? nil : listIn(content);
  return [list isKindOfClass:[NSDictionary class]] ? std::optional(dictionaryOf(list))
                                                   : std::nullopt;
}

}  // namespace

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  @autoreleasepool {
    NSString* const file = stringOf(path);
    return file == nil ? std::nullopt : dictionaryIn([NSData dataWithContentsOfFile:file]);
  }
}

std::optional<PropertyListDictionary> dictionaryWithContents(std::string_view content) {
  @autoreleasepool {
    return dictionaryIn([NSData dataWithBytes:content.data() length:content.size()]);
  }
}

}  // namespace ravelin::platform
