// Constant items: the value is the element's text content.
#include <libxml/tree.h>

#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

using DataMapDetail::CopyText;
using DataMapDetail::Created;

StaticDataItemSpec::StaticDataItemSpec() = default;

StaticDataItemSpec::StaticDataItemSpec(const xmlNode* element) : NvoDataItem(element) {
  // Only the text content counts: a "Value" attribute, lifespan, type and
  // conversions of a static element are not read.
  if (!Xml::IsElement(element)) return;
  value_ = BStr(Xml::TextContent(element));
}

StaticDataItemSpec::StaticDataItemSpec(const char16_t* name, const char16_t* value, const char16_t* prefix)
    : NvoDataItem(name, prefix), value_(CopyText(value)) {}

StaticDataItemSpec::StaticDataItemSpec(const StaticDataItemSpec& other) = default;
StaticDataItemSpec& StaticDataItemSpec::operator=(const StaticDataItemSpec& other) = default;
StaticDataItemSpec::~StaticDataItemSpec() = default;

void StaticDataItemSpec::Initialize() { value_ = BStr(); }

StaticDataItemSpec* StaticDataItemSpec::CreateStaticDataItemSpec() {
  return Created(new (std::nothrow) StaticDataItemSpec());
}

StaticDataItemSpec* StaticDataItemSpec::CreateStaticDataItemSpec(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::StaticDataItemSpec::CreateStaticDataItemSpec");
  return Created(new (std::nothrow) StaticDataItemSpec(element));
}

StaticDataItemSpec* StaticDataItemSpec::CreateStaticDataItemSpec(const char16_t* name, const char16_t* value,
                                                                 const char16_t* prefix) {
  return Created(new (std::nothrow) StaticDataItemSpec(name, value, prefix));
}

}  // namespace Norvane
