#include "platform/linux/PropertyListShape.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace ravelin::platform {

namespace {

constexpr std::string_view BLANKS = " \t\n\r";

/// The elements of an XML property list, from the outermost in. The document counts as the element
/// without a name that holds all the others.
class XmlShape {
 public:
  explicit XmlShape(std::string_view text) : _text(text), _rest(text) {
    constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
    _rest.remove_prefix(_rest.starts_with(BYTE_ORDER_MARK) ? BYTE_ORDER_MARK.size() : 0);
  }

  /// The list in plain tags and texts; null when it is not well-formed.
  std::optional<std::string> plain() {
    if (_rest.find('\0') != std::string_view::npos) {
      return std::nullopt;
    }
    while (!_rest.empty()) {
      if (!_takeText() || !_takeMarkup()) {
        return std::nullopt;
      }
    }
    return _open.size() == 1 && _isComplete(_open.back()) ? std::optional(std::move(_plain))
                                                          : std::nullopt;
  }

  /// How far it was read: to the end, or to where it turned out not to be well-formed.
  [[nodiscard]] std::size_t position() const { return _text.size() - _rest.size(); }

 private:
  struct Element {
    std::string_view name;
    std::size_t children = 0;
    std::size_t textSize = 0;

    [[nodiscard]] bool isCollection() const { return name == "dict" || name == "array"; }
    [[nodiscard]] bool holdsElements() const {
      return name.empty() || name == "plist" || isCollection();
    }
  };

  bool _takeText() {
    const std::string_view text = _rest.substr(0, _rest.find('<'));
    _rest.remove_prefix(text.size());
    return _open.back().holdsElements() ? text.find_first_not_of(BLANKS) == std::string_view::npos
                                        : _keepText(text);
  }

  bool _keepText(std::string_view text) {
    _plain += text;
    _open.back().textSize += text.size();
    return _open.back().textSize <= PROPERTY_LIST_TEXT_LIMIT;
  }

  bool _takeMarkup() {
    if (_rest.empty()) {
      return true;
    }
    if (_rest.starts_with("<!--")) {
      return _takePast("<!--", "-->").has_value();
    }
    const bool isWithinText = !_open.back().holdsElements();
    if (_rest.starts_with("<![CDATA[")) {
      const auto section = _takePast("<![CDATA[", "]]>");
      return isWithinText && section && _keepText(*section);
    }
    if (_rest.starts_with("<?")) {
      return !isWithinText && _takePast("<?", "?>");
    }
    if (_rest.starts_with("<!")) {
      return !isWithinText && _takePast("<!", ">");
    }
    const auto markup = _takePast("<", ">");
    if (!markup) {
      return false;
    }
    const std::string_view tag = markup->substr(1, markup->size() - 2);
    return tag.starts_with('/') ? _close(tag.substr(1)) : _openTag(tag);
  }

  /// Takes what begins here, up to and with that end; null where there is no end.
  std::optional<std::string_view> _takePast(std::string_view start, std::string_view end) {
    const std::size_t found = _rest.find(end, start.size());
    if (found == std::string_view::npos) {
      return std::nullopt;
    }
    const std::string_view taken = _rest.substr(0, found + end.size());
    _rest.remove_prefix(taken.size());
    return taken;
  }

  bool _openTag(std::string_view tag) {
    const bool closesItself = tag.ends_with('/');
    tag.remove_suffix(closesItself ? 1 : 0);
    const Element element{.name = tag.substr(0, tag.find_first_of(BLANKS))};
    const std::string_view attributes = tag.substr(element.name.size());
    if (element.name != "plist" && attributes.find_first_not_of(BLANKS) != std::string_view::npos) {
      return false;
    }
    Element& parent = _open.back();
    if (!_mayHold(parent, element.name) || ++_values > PROPERTY_LIST_VALUE_LIMIT) {
      return false;
    }
    ++parent.children;
    _nesting += element.isCollection() ? 1U : 0U;
    _plain.append("<").append(element.name).append(">");
    _open.push_back(element);
    return _nesting <= PROPERTY_LIST_NESTING_LIMIT && (!closesItself || _close(element.name));
  }

  static bool _mayHold(const Element& parent, std::string_view name) {
    static constexpr std::array<std::string_view, 9> VALUES{
        "array", "data", "date", "dict", "false", "integer", "real", "string", "true"};
    if (name == "plist") {
      return parent.name.empty();
    }
    if (parent.name == "dict" && parent.children % 2 == 0) {
      return name == "key";
    }
    return parent.holdsElements() && std::ranges::find(VALUES, name) != VALUES.end();
  }

  bool _close(std::string_view tag) {
    const Element element = _open.back();
    const std::string_view name = tag.substr(0, tag.find_last_not_of(BLANKS) + 1);
    if (name.empty() || name != element.name || !_isComplete(element)) {
      return false;
    }
    _nesting -= element.isCollection() ? 1U : 0U;
    _plain.append("</").append(name).append(">");
    _open.pop_back();
    return true;
  }

  static bool _isComplete(const Element& element) {
    if (element.name.empty() || element.name == "plist") {
      return element.children == 1;
    }
    return element.name != "dict" || element.children % 2 == 0;
  }

  std::string_view _text;
  std::string_view _rest;
  std::string _plain;
  std::vector<Element> _open{Element{}};
  std::size_t _nesting = 0;
  std::size_t _values = 0;
};

/// The objects of a binary property list, as they are reached from the topmost one: one that is
/// referred to twice counts twice, because it is read twice.
class BinaryShape {
 public:
  explicit BinaryShape(std::string_view content) : _content(content) {}

  bool isSound() {
    constexpr std::size_t TRAILER_SIZE = 32;
    if (_content.size() < TRAILER_SIZE) {
      return false;
    }
    // Six bytes of no meaning, two sizes of one byte, three numbers of eight.
    std::size_t at = _content.size() - TRAILER_SIZE + 6;
    _offsetSize = _number(at++, 1).value_or(0);
    _referenceSize = _number(at++, 1).value_or(0);
    _objects = _number(at, NUMBER_SIZE).value_or(0);
    const std::uint64_t top = _number(at + NUMBER_SIZE, NUMBER_SIZE).value_or(0);
    _table = _number(at + 2 * NUMBER_SIZE, NUMBER_SIZE).value_or(0);
    return _visit(top, 0);
  }

 private:
  static constexpr std::size_t NUMBER_SIZE = 8;

  // The types that have a count.
  static constexpr std::uint64_t DATA = 0x40;
  static constexpr std::uint64_t ASCII = 0x50;
  static constexpr std::uint64_t UTF16 = 0x60;
  static constexpr std::uint64_t ARRAY = 0xA0;
  static constexpr std::uint64_t SET = 0xC0;
  static constexpr std::uint64_t DICTIONARY = 0xD0;
  /// Among these types, but without a count.
  static constexpr std::uint64_t UID = 0x80;

  /// The big-endian number at that place; null when it does not lie within the content.
  [[nodiscard]] std::optional<std::uint64_t> _number(std::uint64_t at, std::uint64_t size) const {
    if (size == 0 || size > NUMBER_SIZE || at > _content.size() || _content.size() - at < size) {
      return std::nullopt;
    }
    constexpr unsigned BITS = 8;
    std::uint64_t number = 0;
    for (const char byte : _content.substr(at, size)) {
      number = number << BITS | static_cast<unsigned char>(byte);
    }
    return number;
  }

  [[nodiscard]] std::optional<std::uint64_t> _offsetOf(std::uint64_t object) const {
    if (object >= _objects || object >= _content.size() || _table >= _content.size()) {
      return std::nullopt;
    }
    return _number(_table + object * _offsetSize, _offsetSize);
  }

  /// One object: what its marker says, and where its content begins.
  struct Object {
    std::uint64_t type = 0;
    std::uint64_t count = 0;  ///< of items, characters or bytes, where the type has a count
    std::uint64_t content = 0;
  };

  /// Null when there is no such object, or when it is one more than the limit.
  std::optional<Object> _take(std::uint64_t reference) {
    constexpr std::uint64_t LOW_HALF = 0x0F;
    const std::optional<std::uint64_t> offset = _offsetOf(reference);
    const std::optional<std::uint64_t> marker = offset ? _number(*offset, 1) : std::nullopt;
    if (!marker || ++_values > PROPERTY_LIST_VALUE_LIMIT) {
      return std::nullopt;
    }
    Object object{.type = *marker & ~LOW_HALF, .count = *marker & LOW_HALF, .content = *offset + 1};
    const bool hasCount = object.type >= DATA && object.type != UID;
    if (hasCount && object.count == LOW_HALF) {
      const std::optional<std::uint64_t> count = _takeCount(object.content);
      if (!count) {
        return std::nullopt;
      }
      object.count = *count;
    }
    return object;
  }

  bool _visit(std::uint64_t reference, std::size_t nesting) {
    const std::optional<Object> object = _take(reference);
    if (!object) {
      return false;
    }
    switch (object->type) {
      case DATA:
      case ASCII:
      case UTF16:
        return _bytesOf(*object).has_value();
      case ARRAY:
      case SET:
      case DICTIONARY:
        return _visitItems(*object, nesting);
      default:
        return true;
    }
  }

  bool _visitItems(const Object& object, std::size_t nesting) {
    if (object.count > PROPERTY_LIST_VALUE_LIMIT || nesting == PROPERTY_LIST_NESTING_LIMIT) {
      return false;
    }
    const std::uint64_t keys = object.type == DICTIONARY ? object.count : 0;
    for (std::uint64_t index = 0; index < keys + object.count; ++index) {
      const auto reference = _number(object.content + index * _referenceSize, _referenceSize);
      if (!reference || !(index < keys ? _isKey(*reference) : _visit(*reference, nesting + 1))) {
        return false;
      }
    }
    return true;
  }

  /// libplist takes a key for as long as it is up to its first NUL, and ends the process when that
  /// is not its length.
  bool _isKey(std::uint64_t reference) {
    const std::optional<Object> object = _take(reference);
    if (!object || (object->type != ASCII && object->type != UTF16)) {
      return false;
    }
    const std::optional<std::string_view> bytes = _bytesOf(*object);
    const std::size_t unit = object->type == UTF16 ? 2 : 1;
    for (std::size_t at = 0; bytes && at < bytes->size(); at += unit) {
      if (bytes->substr(at, unit) == std::string_view("\0\0", unit)) {
        return false;
      }
    }
    return bytes.has_value();
  }

  /// The bytes of a text or of data; null when there are fewer, or when all of them together are
  /// more than the limit.
  std::optional<std::string_view> _bytesOf(const Object& object) {
    if (object.count > PROPERTY_LIST_SIZE_LIMIT) {
      return std::nullopt;
    }
    const std::uint64_t size = object.type == UTF16 ? 2 * object.count : object.count;
    _bytes += size;
    if (_bytes > PROPERTY_LIST_SIZE_LIMIT || object.content > _content.size() ||
        _content.size() - object.content < size) {
      return std::nullopt;
    }
    return _content.substr(object.content, size);
  }

  /// The count that stands as an integer object of its own, for which it is too large otherwise.
  std::optional<std::uint64_t> _takeCount(std::uint64_t& at) const {
    constexpr std::uint64_t INTEGER = 0x10;
    constexpr std::uint64_t LARGEST_INTEGER = 0x13;
    const std::optional<std::uint64_t> marker = _number(at, 1);
    if (!marker || *marker < INTEGER || *marker > LARGEST_INTEGER) {
      return std::nullopt;
    }
    const std::uint64_t size = std::uint64_t{1} << (*marker - INTEGER);
    const std::optional<std::uint64_t> count = _number(at + 1, size);
    at += 1 + size;
    return count;
  }

  std::string_view _content;
  std::uint64_t _offsetSize = 0;
  std::uint64_t _referenceSize = 0;
  std::uint64_t _objects = 0;
  std::uint64_t _table = 0;
  std::size_t _values = 0;
  std::uint64_t _bytes = 0;
};

}  // namespace

bool isBinaryPropertyList(std::string_view content) { return content.starts_with("bplist00"); }

std::optional<std::string> soundPropertyList(std::string_view content) {
  if (content.size() > PROPERTY_LIST_SIZE_LIMIT) {
    return std::nullopt;
  }
  if (!isBinaryPropertyList(content)) {
    return XmlShape(content).plain();
  }
  return BinaryShape(content).isSound() ? std::optional(std::string(content)) : std::nullopt;
}

Text faultOfShape(std::string_view content) {
  if (content.size() > PROPERTY_LIST_SIZE_LIMIT) {
    return "it has more than " + std::to_string(PROPERTY_LIST_SIZE_LIMIT) + " bytes";
  }
  if (isBinaryPropertyList(content)) {
    return soundPropertyList(content)
               ? std::nullopt
               : Text("it begins as a binary property list, but is damaged or too large");
  }
  const std::size_t begin = content.find_first_not_of(std::string("\xEF\xBB\xBF").append(BLANKS));
  if (begin == std::string_view::npos) {
    return "it is empty";
  }
  if (content[begin] != '<') {
    return "it is no property list at all";
  }
  XmlShape shape(content);
  if (shape.plain()) {
    return std::nullopt;
  }
  const std::string_view read = content.substr(0, shape.position());
  if (read.size() == content.size()) {
    return "it ends before everything in it is closed, or has nothing in it";
  }
  return "it is no property list from line " + std::to_string(std::ranges::count(read, '\n') + 1) +
         " on";
}

}  // namespace ravelin::platform
