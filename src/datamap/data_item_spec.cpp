// Items read from a device: lifespan, transient flag and type on top of the
// common part.
#include <libxml/tree.h>

#include "norvane/datamap.h"
#include "platform/xml.h"

namespace Norvane {

DataItemSpec::DataItemSpec() = default;

DataItemSpec::DataItemSpec(const xmlNode* element) : NvoDataItem(element) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  type_ = TextValueOf(attributes, "Type");
  transient_ = BoolValueOf(attributes, "Transient");
  lifespan_ = UlongValueOf(attributes, "LifeSpan");
  AddToConversionCollection(element);
}

DataItemSpec::DataItemSpec(const char16_t* name, bool transient, const char16_t* prefix, uint64_t lifespan,
                           const char16_t* type)
    : NvoDataItem(name, prefix),
      lifespan_(static_cast<uint32_t>(lifespan)),
      transient_(transient),
      type_(type == nullptr ? BStr() : BStr(std::u16string_view(type))) {}

DataItemSpec::DataItemSpec(const DataItemSpec& other) = default;
DataItemSpec& DataItemSpec::operator=(const DataItemSpec& other) = default;
DataItemSpec::~DataItemSpec() = default;

void DataItemSpec::Initialize() {
  lifespan_ = 0;
  transient_ = false;
  type_ = BStr();
}

}  // namespace Norvane
