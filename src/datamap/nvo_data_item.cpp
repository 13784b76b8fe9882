// The common part of every data item: name, attribute id, prefix, and the
// attribute readers the element forms of all item kinds share.
#include <libxml/tree.h>

#include <new>
#include <string>

#include "datamap/attribute_values.h"
#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"

namespace Norvane {

using DataMapDetail::CopyText;

namespace {

ConversionTable CopyTable(const ConversionTable& table) {
  try {
    return table;
  } catch (const std::bad_alloc&) {
    throw ComError(E_OUTOFMEMORY);
  }
}

}  // namespace

NvoDataItem::NvoDataItem() = default;

NvoDataItem::NvoDataItem(const xmlNode* element) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  name_ = TextValueOf(attributes, "Name");
  attributeId_ = TextValueOf(attributes, "AttributeID");
  prefix_ = TextValueOf(attributes, "Prefix");
  if (name_.Get() == nullptr) name_ = attributeId_;
}

NvoDataItem::NvoDataItem(const char16_t* name, const char16_t* prefix)
    : name_(CopyText(name)), attributeId_(CopyText(name)), prefix_(CopyText(prefix)) {}

NvoDataItem::NvoDataItem(const NvoDataItem& other)
    : name_(other.name_),
      attributeId_(other.attributeId_),
      prefix_(other.prefix_),
      contains_(CopyTable(other.contains_)),
      equals_(CopyTable(other.equals_)) {}

NvoDataItem& NvoDataItem::operator=(const NvoDataItem& other) {
  if (this != &other) {
    // Copy everything first so a failed copy leaves this item as it was.
    NvoDataItem copy(other);
    name_ = std::move(copy.name_);
    attributeId_ = std::move(copy.attributeId_);
    prefix_ = std::move(copy.prefix_);
    contains_.swap(copy.contains_);
    equals_.swap(copy.equals_);
  }
  return *this;
}

NvoDataItem::~NvoDataItem() = default;

void NvoDataItem::Initialize() {
  name_ = BStr();
  attributeId_ = BStr();
  prefix_ = BStr();
  contains_.clear();
  equals_.clear();
}

const xmlAttr* NvoDataItem::AttributesOf(const xmlNode* element) {
  return Xml::IsElement(element) ? element->properties : nullptr;
}

BStr NvoDataItem::TextValueOf(const xmlAttr* attributes, const char* name) {
  const xmlAttr* attribute = Xml::FindAttribute(attributes, name != nullptr ? name : "");
  if (attribute == nullptr) return BStr();
  std::string storage;
  return DataMapDetail::ToBStr(Xml::AttributeText(attribute, &storage));
}

bool NvoDataItem::BoolValueOf(const xmlAttr* attributes, const char* name) {
  const xmlAttr* attribute = Xml::FindAttribute(attributes, name != nullptr ? name : "");
  std::string storage;
  return attribute != nullptr && DataMapDetail::IsTrueText(Xml::AttributeText(attribute, &storage));
}

uint32_t NvoDataItem::UlongValueOf(const xmlAttr* attributes, const char* name) {
  const xmlAttr* attribute = Xml::FindAttribute(attributes, name != nullptr ? name : "");
  std::string storage;
  return attribute == nullptr ? 0 : DataMapDetail::ParseUnsigned(Xml::AttributeText(attribute, &storage));
}

int32_t NvoDataItem::IntValueOf(const xmlAttr* attributes, const char* name) {
  const xmlAttr* attribute = Xml::FindAttribute(attributes, name != nullptr ? name : "");
  std::string storage;
  return attribute == nullptr ? 0 : DataMapDetail::ParseSigned(Xml::AttributeText(attribute, &storage));
}

bool NvoDataItem::ElementNameIs(const xmlNode* node, const char* name) {
  return name != nullptr && Xml::LocalNameIs(node, name);
}

}  // namespace Norvane
