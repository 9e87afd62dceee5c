#include "platform/PropertyList.h"

#import <Foundation/Foundation.h>

#include <cstddef>
#include <string>
#include <utility>

#include "base/Text.h"
#include "platform/FileManager.h"
#include "platform/Service.h"
#include "platform/macos/FoundationText.h"

namespace ravelin::platform {

namespace {

/// Larger than any list that is meant seriously, in bytes.
constexpr std::size_t SIZE_LIMIT = std::size_t{1024} * 1024;

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

/// Copies one list. In a binary list a value may be referred to any number of times, so that a few
/// hundred bytes hold more than any memory once each has its own copy: that much is not copied.
class Copying {
 public:
  /// Null for what is no dictionary, or too large.
  std::optional<PropertyListDictionary> dictionaryIn(id list) {
    if (![list isKindOfClass:[NSDictionary class]]) {
      return std::nullopt;
    }
    auto copied = _dictionaryOf(list);
    return _isTooLarge ? std::nullopt : std::optional(std::move(copied));
  }

 private:
  PropertyListArray _arrayOf(NSArray* objects) {
    PropertyListArray values;
    for (id object in objects) {
      if (_isTooLarge) {
        break;
      }
      values.push_back(_valueOf(object));
    }
    return values;
  }

  PropertyListDictionary _dictionaryOf(NSDictionary* objects) {
    PropertyListDictionary values;
    for (NSString* key in objects) {
      if (_isTooLarge) {
        break;
      }
      values.emplace(_textOf(key), _valueOf([objects objectForKey:key]));
    }
    return values;
  }

  std::string _textOf(NSString* string) {
    std::string text = textOrNull(textOf(string));
    _bytes += text.size();
    _isTooLarge |= _bytes > SIZE_LIMIT;
    return text;
  }

  PropertyListValue _valueOf(id object) {
    constexpr std::size_t VALUE_LIMIT = 65536;
    _isTooLarge |= ++_values > VALUE_LIMIT;
    if ([object isKindOfClass:[NSString class]]) {
      return PropertyListValue(_textOf(object));
    }
    if ([object isKindOfClass:[NSNumber class]]) {
      return numberOf(object);
    }
    const bool isArray = [object isKindOfClass:[NSArray class]];
    if (!isArray && ![object isKindOfClass:[NSDictionary class]]) {
      return {};
    }
    constexpr std::size_t NESTING_LIMIT = 64;
    _isTooLarge |= _depth == NESTING_LIMIT;
    if (_isTooLarge) {
      return {};
    }
    ++_depth;
    PropertyListValue copied =
        isArray ? PropertyListValue(_arrayOf(object)) : PropertyListValue(_dictionaryOf(object));
    --_depth;
    return copied;
  }

  std::size_t _values = 0;
  std::size_t _bytes = 0;  ///< of the texts
  std::size_t _depth = 1;
  bool _isTooLarge = false;
};

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

}  // namespace

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  // The system's own call would wait for a FIFO, and read a file of any size.
  const Text content = service<FileManager>().contentsAtPath(path, SIZE_LIMIT).text;
  return content ? dictionaryWithContents(*content) : std::nullopt;
}

std::optional<PropertyListDictionary> dictionaryWithContents(std::string_view content) {
  if (content.size() > SIZE_LIMIT) {
    return std::nullopt;
  }
  @autoreleasepool {
    return Copying().dictionaryIn(listIn([NSData dataWithBytes:content.data()
                                                        length:content.size()]));
  }
}

}  // namespace ravelin::platform
