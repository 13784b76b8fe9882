// Items read by XPath from one of the device's XML resources.
#include <libxml/tree.h>

#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

using DataMapDetail::CopyText;
using DataMapDetail::Created;

XMLDataItemSpec::XMLDataItemSpec() = default;

XMLDataItemSpec::XMLDataItemSpec(const xmlNode* element) : DataItemSpec(element) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  uri_ = TextValueOf(attributes, "URI");
  xpath_ = TextValueOf(attributes, "XPath");
}

XMLDataItemSpec::XMLDataItemSpec(const char16_t* name, const char16_t* uri, const char16_t* xpath,
                                 const char16_t* prefix, bool transient, uint64_t lifespan, const char16_t* type)
    : DataItemSpec(name, transient, prefix, lifespan, type), uri_(CopyText(uri)), xpath_(CopyText(xpath)) {}

XMLDataItemSpec::XMLDataItemSpec(const XMLDataItemSpec& other) = default;
XMLDataItemSpec& XMLDataItemSpec::operator=(const XMLDataItemSpec& other) = default;
XMLDataItemSpec::~XMLDataItemSpec() = default;

void XMLDataItemSpec::Initialize() {
  uri_ = BStr();
  xpath_ = BStr();
}

XMLDataItemSpec* XMLDataItemSpec::CreateXMLDataItem() { return Created(new (std::nothrow) XMLDataItemSpec()); }

XMLDataItemSpec* XMLDataItemSpec::CreateXMLDataItem(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLDataItemSpec::CreateXMLDataItem");
  return Created(new (std::nothrow) XMLDataItemSpec(element));
}

XMLDataItemSpec* XMLDataItemSpec::CreateXMLDataItem(const char16_t* name, const char16_t* uri, const char16_t* xpath,
                                                    const char16_t* prefix, bool transient, uint64_t lifespan,
                                                    const char16_t* type) {
  return Created(new (std::nothrow) XMLDataItemSpec(name, uri, xpath, prefix, transient, lifespan, type));
}

}  // namespace Norvane
