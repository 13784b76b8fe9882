// Filling the two conversion tables of an item from its Conversion children.
#include <libxml/tree.h>

#include <new>

#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/string_utils.h"

namespace Norvane {

namespace {

std::u16string LowerAscii(std::u16string text) {
  for (char16_t& c : text) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  }
  return text;
}

void Store(ConversionTable* table, std::u16string key, std::u16string_view value) {
  try {
    (*table)[LowerAscii(std::move(key))].assign(value);
  } catch (const std::bad_alloc&) {
    throw ComError(E_OUTOFMEMORY);
  }
}

}  // namespace

void NvoDataItem::AddConversion(const char16_t* equals, const char16_t* contains, const char16_t* value) {
  if (value == nullptr) return;
  if (equals != nullptr) Store(&equals_, equals, value);
  if (contains != nullptr) Store(&contains_, contains, value);
}

void DataItemSpec::AddToConversionCollection(const xmlNode* element) {
  for (const xmlNode* child : Xml::Children(element)) {
    if (!ElementNameIs(child, "Conversion")) continue;
    const xmlAttr* attributes = AttributesOf(child);
    const xmlAttr* value = Xml::FindAttribute(attributes, "Value");
    if (value == nullptr) continue;
    std::u16string replacement = QxUtils::Utf8ToWide(Xml::AttributeText(value));
    if (const xmlAttr* equals = Xml::FindAttribute(attributes, "Equals")) {
      std::u16string key = QxUtils::Utf8ToWide(Xml::AttributeText(equals));
      AddConversion(key.c_str(), nullptr, replacement.c_str());
    }
    if (const xmlAttr* contains = Xml::FindAttribute(attributes, "Contains")) {
      std::u16string key = QxUtils::Utf8ToWide(Xml::AttributeText(contains));
      AddConversion(nullptr, key.c_str(), replacement.c_str());
    }
  }
}

}  // namespace Norvane
