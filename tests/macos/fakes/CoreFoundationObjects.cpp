#include "CoreFoundationObjects.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <utility>

using ravelin::fakes::Object;
using ravelin::fakes::Reference;

// The texts of this are UTF-16, as the real ones behave: half a surrogate pair can be in one.
struct __CFString : Object {
  std::u16string units;
};
struct __CFArray : Object {
  ~__CFArray() override { std::ranges::for_each(values, CFRelease); }
  std::vector<CFTypeRef> values;
};
struct __CFBoolean : Object {};
struct __CFURL : Object {
  std::string text;
  bool isFile = false;
};
struct __CFDictionary : Object {
  ~__CFDictionary() override {
    for (const auto& [key, value] : values) {
      CFRelease(value);
    }
  }
  std::map<std::string, CFTypeRef, std::less<>> values;
};

extern "C" {
/// The class of the constants that the compiler makes of CFSTR. Only its address counts.
int __CFConstantStringClassReference[24];
}

namespace {

/// How the compiler lays out such a constant.
struct ConstantString {
  const int* isa;
  int flags;
  const char* text;
  long size;
};

constexpr char32_t LARGEST = 0x10FFFF;
constexpr char32_t FIRST_SURROGATE = 0xD800;
constexpr char32_t FIRST_LOW_SURROGATE = 0xDC00;
constexpr char32_t LAST_SURROGATE = 0xDFFF;
constexpr char32_t BEYOND_ONE_UNIT = 0x10000;

bool isConstant(CFTypeRef reference) {
  return *static_cast<const int* const*>(reference) == __CFConstantStringClassReference;
}

Object& object(CFTypeRef reference) { return *static_cast<Object*>(const_cast<void*>(reference)); }

/// Null when the bytes are not UTF-8: overlong forms and surrogates are none.
std::optional<std::u16string> unitsOf(std::string_view bytes) {
  std::u16string units;
  for (std::size_t at = 0; at < bytes.size();) {
    const auto first = static_cast<unsigned char>(bytes[at++]);
    int further = 0;
    char32_t least = 0;
    char32_t character = first;
    if (first >= 0xF0 && first < 0xF8) {
      further = 3, least = BEYOND_ONE_UNIT, character = first & 0x07U;
    } else if (first >= 0xE0 && first < 0xF0) {
      further = 2, least = 0x800, character = first & 0x0FU;
    } else if (first >= 0xC0 && first < 0xE0) {
      further = 1, least = 0x80, character = first & 0x1FU;
    } else if (first >= 0x80) {
      return std::nullopt;
    }
    for (; further > 0; --further, ++at) {
      if (at >= bytes.size() || (static_cast<unsigned char>(bytes[at]) & 0xC0U) != 0x80) {
        return std::nullopt;
      }
      character = character << 6U | (static_cast<unsigned char>(bytes[at]) & 0x3FU);
    }
    if (character < least || character > LARGEST ||
        (character >= FIRST_SURROGATE && character <= LAST_SURROGATE)) {
      return std::nullopt;
    }
    if (character >= BEYOND_ONE_UNIT) {
      const char32_t rest = character - BEYOND_ONE_UNIT;
      units += static_cast<char16_t>(FIRST_SURROGATE + (rest >> 10U));
      units += static_cast<char16_t>(FIRST_LOW_SURROGATE + (rest & 0x3FFU));
    } else {
      units += static_cast<char16_t>(character);
    }
  }
  return units;
}

void append(std::string& bytes, char32_t character) {
  const auto add = [&bytes](char32_t byte) { bytes += static_cast<char>(byte); };
  const auto follow = [&](unsigned shift) { add(0x80U | (character >> shift & 0x3FU)); };
  if (character < 0x80) {
    add(character);
  } else if (character < 0x800) {
    add(0xC0U | character >> 6U), follow(0);
  } else if (character < BEYOND_ONE_UNIT) {
    add(0xE0U | character >> 12U), follow(6), follow(0);
  } else {
    add(0xF0U | character >> 18U), follow(12), follow(6), follow(0);
  }
}

/// The UTF-8 of each character, and how many units it takes; what has none becomes the lossy byte.
/// Where that is 0, what follows is left out.
struct Encoded {
  std::vector<std::pair<std::string, CFIndex>> characters;
};
Encoded encoded(std::u16string_view units, UInt8 lossyByte) {
  Encoded result;
  for (std::size_t at = 0; at < units.size(); ++at) {
    char32_t character = units[at];
    CFIndex taken = 1;
    if (character >= FIRST_SURROGATE && character <= LAST_SURROGATE) {
      const char32_t next = at + 1 < units.size() ? units[at + 1] : U'\0';
      if (character < FIRST_LOW_SURROGATE && next >= FIRST_LOW_SURROGATE &&
          next <= LAST_SURROGATE) {
        character =
            BEYOND_ONE_UNIT + ((character - FIRST_SURROGATE) << 10U) + (next - FIRST_LOW_SURROGATE);
        taken = 2;
        ++at;
      } else if (lossyByte == 0) {
        return result;
      } else {
        character = lossyByte;
      }
    }
    std::string bytes;
    append(bytes, character);
    result.characters.emplace_back(std::move(bytes), taken);
  }
  return result;
}

std::u16string unitsOf(CFStringRef string) {
  if (isConstant(string)) {
    const auto* const constant =
        static_cast<const ConstantString*>(static_cast<const void*>(string));
    return {constant->text, constant->text + constant->size};
  }
  return string->units;
}

}  // namespace

namespace ravelin::fakes {

CFStringRef makeString(std::string_view text) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                 static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, 0);
}

std::string contentOf(CFStringRef string) {
  std::string content;
  if (string != nullptr) {
    for (const auto& [bytes, units] : encoded(unitsOf(string), '?').characters) {
      content += bytes;
    }
  }
  return content;
}

CFArrayRef makeArray(const std::vector<std::string>& texts) {
  auto* const array = new __CFArray;
  for (const std::string& text : texts) {
    array->values.push_back(makeString(text));
  }
  return array;
}

std::string contentOf(CFURLRef url) { return url == nullptr ? "" : url->text; }

CFURLRef makeFileUrl(const std::string& path) {
  auto* const url = new __CFURL;
  url->text = path;
  url->isFile = true;
  return url;
}

CFTypeRef valueAt(CFDictionaryRef dictionary, std::string_view key) {
  const auto found = dictionary->values.find(key);
  return found == dictionary->values.end() ? nullptr : found->second;
}

}  // namespace ravelin::fakes

namespace {

__CFBoolean gTrue;
__CFBoolean gFalse;

}  // namespace

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFBooleanRef kCFBooleanTrue = &gTrue;
const CFBooleanRef kCFBooleanFalse = &gFalse;
const CFArrayCallBacks kCFTypeArrayCallBacks{};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks{};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks{};

CFTypeRef CFRetain(CFTypeRef cf) {
  if (!isConstant(cf)) {
    ++object(cf).references;
  }
  return cf;
}

void CFRelease(CFTypeRef cf) {
  if (cf == nullptr) {
    std::abort();  // as the real one does
  }
  if (!isConstant(cf) && --object(cf).references == 0) {
    delete &object(cf);
  }
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef /*alloc*/, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean /*isExternal*/) {
  if (encoding != kCFStringEncodingUTF8) {
    std::abort();  // nothing else is known here
  }
  auto units = unitsOf(
      std::string_view(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(numBytes)));
  if (!units) {
    return nullptr;
  }
  auto* const string = new __CFString;
  string->units = *std::move(units);
  return string;
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef /*alloc*/, const UniChar* chars,
                                         CFIndex numChars) {
  auto* const string = new __CFString;
  string->units.assign(chars, chars + numChars);
  return string;
}

CFIndex CFStringGetLength(CFStringRef theString) {
  return static_cast<CFIndex>(unitsOf(theString).size());
}

CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding /*encoding*/,
                         UInt8 lossByte, Boolean /*isExternal*/, UInt8* buffer, CFIndex maxBufLen,
                         CFIndex* usedBufLen) {
  const std::u16string units = unitsOf(theString);
  const std::u16string_view chosen = std::u16string_view(units).substr(
      static_cast<std::size_t>(range.location), static_cast<std::size_t>(range.length));
  CFIndex used = 0;
  CFIndex converted = 0;
  for (const auto& [bytes, taken] : encoded(chosen, lossByte).characters) {
    const auto size = static_cast<CFIndex>(bytes.size());
    if (buffer != nullptr) {
      if (used + size > maxBufLen) {
        break;
      }
      std::ranges::copy(bytes, buffer + used);
    }
    used += size;
    converted += taken;
  }
  if (usedBufLen != nullptr) {
    *usedBufLen = used;
  }
  return converted;
}

CFArrayRef CFArrayCreate(CFAllocatorRef /*allocator*/, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* /*callBacks*/) {
  auto* const array = new __CFArray;
  for (CFIndex index = 0; index < numValues; ++index) {
    array->values.push_back(CFRetain(values[index]));
  }
  return array;
}

CFIndex CFArrayGetCount(CFArrayRef theArray) {
  return static_cast<CFIndex>(theArray->values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
  return theArray->values.at(static_cast<std::size_t>(idx));
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef /*allocator*/, CFIndex /*capacity*/,
                                                 const CFDictionaryKeyCallBacks* /*keyCallBacks*/,
                                                 const CFDictionaryValueCallBacks* /*callBacks*/) {
  return new __CFDictionary;
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
  CFRetain(value);
  CFTypeRef& place = theDict->values[ravelin::fakes::contentOf(static_cast<CFStringRef>(key))];
  if (place != nullptr) {
    CFRelease(place);
  }
  place = value;
}

// A URL takes no character but those that may stand in one.
CFURLRef CFURLCreateWithString(CFAllocatorRef /*allocator*/, CFStringRef URLString,
                               CFURLRef /*baseURL*/) {
  const std::string text = ravelin::fakes::contentOf(URLString);
  const bool isGood = std::ranges::all_of(text, [](char character) {
    return character > ' ' && character < '\x7F' &&
           std::string_view("\"<>\\^`{|}").find(character) == std::string_view::npos;
  });
  if (!isGood) {
    return nullptr;
  }
  auto* const url = new __CFURL;
  url->text = text;
  return url;
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle /*pathStyle*/) {
  if (anURL->isFile) {
    return ravelin::fakes::makeString(anURL->text);
  }
  const std::size_t host = anURL->text.find("//");
  const std::size_t path = host == std::string::npos ? host : anURL->text.find('/', host + 2);
  return path == std::string::npos ? nullptr : ravelin::fakes::makeString(anURL->text.substr(path));
}

}  // extern "C"
