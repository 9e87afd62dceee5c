#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <bit>
#include <cstdlib>
#include <string_view>

#include "base/Text.h"
#include "platform/FileManager.h"
#include "platform/PropertyListFault.h"
#include "platform/Service.h"
#include "platform/linux/PropertyListShape.h"

namespace ravelin::platform {

namespace {

struct Freeing {
  void operator()(void* memory) const { std::free(memory); }
};

struct PlistFreeing {
  void operator()(void* node) const { plist_free(node); }
};

using Plist = std::unique_ptr<void, PlistFreeing>;

PropertyListValue valueOf(plist_t node);

PropertyListArray arrayOf(plist_t node) {
  PropertyListArray items;
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const std::unique_ptr<void, Freeing> iteratorOwner(iterator);
  plist_t item = nullptr;
  for (plist_array_next_item(node, iterator, &item); item != nullptr;
       plist_array_next_item(node, iterator, &item)) {
    items.push_back(valueOf(item));
  }
  return items;
}

PropertyListDictionary dictionaryOf(plist_t node) {
  PropertyListDictionary entries;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, Freeing> iteratorOwner(iterator);
  while (true) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator, &key, &value);
    const std::unique_ptr<char, Freeing> keyOwner(key);
    if (key == nullptr || value == nullptr) {
      return entries;
    }
    entries.insert_or_assign(key, valueOf(value));
  }
}

/// Recursion ends: the nesting was checked before.
PropertyListValue valueOf(plist_t node) {
  using Variant = PropertyListValue::Variant;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t truth = 0;
      plist_get_bool_val(node, &truth);
      return Variant(truth != 0);
    }
    case PLIST_UINT: {
      std::uint64_t number = 0;
      plist_get_uint_val(node, &number);
      return Variant(std::bit_cast<std::int64_t>(number));
    }
    case PLIST_REAL: {
      double number = 0;
      plist_get_real_val(node, &number);
      return Variant(number);
    }
    case PLIST_STRING: {
      std::uint64_t length = 0;
      const char* const text = plist_get_string_ptr(node, &length);
      return Variant(text != nullptr ? std::string(text, length) : std::string());
    }
    case PLIST_ARRAY:
      return Variant(arrayOf(node));
    case PLIST_DICT:
      return Variant(dictionaryOf(node));
    default:
      return {};
  }
}

Plist parse(std::string_view content) {
  plist_t root = nullptr;
  if (const Text sound = soundPropertyList(content)) {
    // Not plist_from_memory: its parameters differ between the versions.
    const auto read = isBinaryPropertyList(*sound) ? &plist_from_bin : &plist_from_xml;
    read(sound->data(), static_cast<std::uint32_t>(sound->size()), &root);
  }
  return Plist(root);
}

}  // namespace

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  const Text content = service<FileManager>().contentsAtPath(path, FileManager::CONTENT_LIMIT).text;
  return content ? dictionaryWithContents(*content) : std::nullopt;
}

std::optional<PropertyListDictionary> dictionaryWithContents(std::string_view content) {
  const Plist root = parse(content);
  if (root == nullptr || plist_get_node_type(root.get()) != PLIST_DICT) {
    return std::nullopt;
  }
  return dictionaryOf(root.get());
}

Text faultOfPropertyList(std::string_view content) {
  if (const Text fault = faultOfShape(content)) {
    return fault;
  }
  const Plist root = parse(content);
  if (root == nullptr) {
    return "it holds a value that cannot be read";
  }
  return plist_get_node_type(root.get()) == PLIST_DICT
             ? std::nullopt
             : Text("it is a property list, but there is no dictionary at its top");
}

}  // namespace ravelin::platform
