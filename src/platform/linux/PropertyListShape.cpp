#include "platform/linux/PropertyListShape.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace ravelin::platform {

namespace {

constexpr std::string_view BLANKS = " \t\n\r";

/// The elements of an XML property list, from the outermost in. The document counts as the element
/// without a name that holds all the others.
class XmlShape {
 public:
  explicit XmlShape(std::string_view text) : _rest(text) {}

  bool isSound() {
    while (!_rest.empty()) {
      if (!_takeText() || !_takeMarkup()) {
        return false;
      }
    }
    return _open.size() == 1 && _isComplete(_open.back());
  }

 private:
  struct Element {
    std::string_view name;
    std::size_t children = 0;

    [[nodiscard]] bool isCollection() const { return name == "dict" || name == "array"; }
    [[nodiscard]] bool holdsElements() const {
      return name.empty() || name == "plist" || isCollection();
    }
  };

  bool _takeText() {
    const std::string_view text = _rest.substr(0, _rest.find('<'));
    _rest.remove_prefix(text.size());
    return !_open.back().holdsElements() ||
           text.find_first_not_of(BLANKS) == std::string_view::npos;
  }

  bool _takeMarkup() {
    if (_rest.empty()) {
      return true;
    }
    if (_rest.starts_with("<!--")) {
      return _skipPast("<!--", "-->");
    }
    if (_rest.starts_with("<![CDATA[")) {
      return !_open.back().holdsElements() && _skipPast("<![CDATA[", "]]>");
    }
    if (_rest.starts_with("<?")) {
      return _skipPast("<?", "?>");
    }
    if (_rest.starts_with("<!")) {
      return _skipPast("<!", ">");
    }
    const std::string_view tag = _rest.substr(1, _rest.find('>') - 1);
    if (!_skipPast("<", ">")) {
      return false;
    }
    return tag.starts_with('/') ? _close(tag.substr(1)) : _openTag(tag);
  }

  bool _skipPast(std::string_view start, std::string_view end) {
    const std::size_t found = _rest.find(end, start.size());
    _rest.remove_prefix(found == std::string_view::npos ? _rest.size() : found + end.size());
    return found != std::string_view::npos;
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
    const bool wantsKey = parent.name == "dict" && parent.children % 2 == 0;
    if (element.name.empty() || !parent.holdsElements() || wantsKey != (element.name == "key") ||
        ++_values > PROPERTY_LIST_VALUE_LIMIT) {
      return false;
    }
    ++parent.children;
    _nesting += element.isCollection() ? 1U : 0U;
    _open.push_back(element);
    return _nesting <= PROPERTY_LIST_NESTING_LIMIT && (!closesItself || _close(element.name));
  }

  bool _close(std::string_view tag) {
    const Element element = _open.back();
    const std::string_view name = tag.substr(0, tag.find_last_not_of(BLANKS) + 1);
    if (name.empty() || name != element.name || !_isComplete(element)) {
      return false;
    }
    _nesting -= element.isCollection() ? 1U : 0U;
    _open.pop_back();
    return true;
  }

  static bool _isComplete(const Element& element) {
    if (element.name.empty() || element.name == "plist") {
      return element.children == 1;
    }
    return element.name != "dict" || element.children % 2 == 0;
  }

  std::string_view _rest;
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
    _offsetSize = *_number(at++, 1);
    _referenceSize = *_number(at++, 1);
    _objects = *_number(at, NUMBER_SIZE);
    const std::uint64_t top = *_number(at + NUMBER_SIZE, NUMBER_SIZE);
    _table = *_number(at + 2 * NUMBER_SIZE, NUMBER_SIZE);
    return _visit(top, 0);
  }

 private:
  static constexpr std::size_t NUMBER_SIZE = 8;

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

  bool _visit(std::uint64_t object, std::size_t nesting) {
    constexpr std::uint64_t LOW_HALF = 0x0F;
    constexpr std::uint64_t ARRAY = 0xA0;
    constexpr std::uint64_t SET = 0xC0;
    constexpr std::uint64_t DICTIONARY = 0xD0;
    const std::optional<std::uint64_t> offset = _offsetOf(object);
    const std::optional<std::uint64_t> marker = offset ? _number(*offset, 1) : std::nullopt;
    if (!marker || ++_values > PROPERTY_LIST_VALUE_LIMIT) {
      return false;
    }
    const std::uint64_t type = *marker & ~LOW_HALF;
    if (type != ARRAY && type != SET && type != DICTIONARY) {
      return true;
    }
    std::optional<std::uint64_t> count = *marker & LOW_HALF;
    std::uint64_t at = *offset + 1;
    if (*count == LOW_HALF) {
      count = _takeCount(at);
    }
    if (!count || *count > PROPERTY_LIST_VALUE_LIMIT || nesting == PROPERTY_LIST_NESTING_LIMIT) {
      return false;
    }
    return _visitAll(at, type == DICTIONARY ? 2 * *count : *count, nesting + 1);
  }

  bool _visitAll(std::uint64_t references, std::uint64_t count, std::size_t nesting) {
    for (std::uint64_t index = 0; index < count; ++index) {
      const auto object = _number(references + index * _referenceSize, _referenceSize);
      if (!object || !_visit(*object, nesting)) {
        return false;
      }
    }
    return true;
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
};

}  // namespace

bool isBinaryPropertyList(std::string_view content) { return content.starts_with("bplist00"); }

bool hasSoundShape(std::string_view content) {
  return isBinaryPropertyList(content) ? BinaryShape(content).isSound()
                                       : XmlShape(content).isSound();
}

}  // namespace ravelin::platform
