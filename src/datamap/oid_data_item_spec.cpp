// Items read from SNMP objects: a single object or group member, and the
// get-next walk.
#include <libxml/tree.h>

#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

using DataMapDetail::CopyText;
using DataMapDetail::Created;

// ---- OIDDataItemSpec

OIDDataItemSpec::OIDDataItemSpec() = default;

OIDDataItemSpec::OIDDataItemSpec(const xmlNode* element) : DataItemSpec(element) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  oid_ = TextValueOf(attributes, "OID");
  group_ = TextValueOf(attributes, "GroupID");
}

OIDDataItemSpec::OIDDataItemSpec(const char16_t* name, const char16_t* oid, const char16_t* group, bool transient,
                                 const char16_t* prefix, uint64_t lifespan, const char16_t* type)
    : DataItemSpec(name, transient, prefix, lifespan, type), group_(CopyText(group)), oid_(CopyText(oid)) {}

OIDDataItemSpec::OIDDataItemSpec(const OIDDataItemSpec& other) = default;
OIDDataItemSpec& OIDDataItemSpec::operator=(const OIDDataItemSpec& other) = default;
OIDDataItemSpec::~OIDDataItemSpec() = default;

void OIDDataItemSpec::Initialize() {
  group_ = BStr();
  oid_ = BStr();
}

NextOIDDataItemSpec* OIDDataItemSpec::GetNextOIDDataItemSpec() { return nullptr; }
OIDGetDataItemsSpec* OIDDataItemSpec::GetOIDGetDataItemsSpec() { return nullptr; }

OIDDataItemSpec* OIDDataItemSpec::CreateOIDDataItemSpec() { return Created(new (std::nothrow) OIDDataItemSpec()); }

OIDDataItemSpec* OIDDataItemSpec::CreateOIDDataItemSpec(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataItemSpec::CreateOIDDataItemSpec");
  return Created(new (std::nothrow) OIDDataItemSpec(element));
}

OIDDataItemSpec* OIDDataItemSpec::CreateOIDDataItemSpec(const char16_t* name, const char16_t* oid,
                                                        const char16_t* group, bool transient, const char16_t* prefix,
                                                        uint64_t lifespan, const char16_t* type) {
  return Created(new (std::nothrow) OIDDataItemSpec(name, oid, group, transient, prefix, lifespan, type));
}

// ---- NextOIDDataItemSpec

NextOIDDataItemSpec::NextOIDDataItemSpec() = default;

NextOIDDataItemSpec::NextOIDDataItemSpec(const xmlNode* element) : OIDDataItemSpec(element) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  untilEnd_ = BoolValueOf(attributes, "UntilEnd");
  count_ = IntValueOf(attributes, "Count");
}

NextOIDDataItemSpec::NextOIDDataItemSpec(const char16_t* name, const char16_t* oid, const char16_t* group,
                                         bool transient, const char16_t* prefix, uint64_t lifespan,
                                         const char16_t* type, bool untilEnd, int32_t count)
    : OIDDataItemSpec(name, oid, group, transient, prefix, lifespan, type), count_(count), untilEnd_(untilEnd) {}

NextOIDDataItemSpec::NextOIDDataItemSpec(const NextOIDDataItemSpec& other) = default;
NextOIDDataItemSpec& NextOIDDataItemSpec::operator=(const NextOIDDataItemSpec& other) = default;
NextOIDDataItemSpec::~NextOIDDataItemSpec() = default;

void NextOIDDataItemSpec::Initialize() {
  count_ = 0;
  untilEnd_ = false;
}

NextOIDDataItemSpec* NextOIDDataItemSpec::GetNextOIDDataItemSpec() { return this; }
OIDGetDataItemsSpec* NextOIDDataItemSpec::GetOIDGetDataItemsSpec() { return nullptr; }

NextOIDDataItemSpec* NextOIDDataItemSpec::CreateNextOidDataItemSpec() {
  return Created(new (std::nothrow) NextOIDDataItemSpec());
}

NextOIDDataItemSpec* NextOIDDataItemSpec::CreateNextOidDataItemSpec(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::NextOIDDataItemSpec::CreateNextOidDataItemSpec");
  return Created(new (std::nothrow) NextOIDDataItemSpec(element));
}

NextOIDDataItemSpec* NextOIDDataItemSpec::CreateNextOidDataItemSpec(const char16_t* name, const char16_t* oid,
                                                                    const char16_t* group, bool transient,
                                                                    const char16_t* prefix, uint64_t lifespan,
                                                                    const char16_t* type, bool untilEnd,
                                                                    int32_t count) {
  return Created(new (std::nothrow)
                     NextOIDDataItemSpec(name, oid, group, transient, prefix, lifespan, type, untilEnd, count));
}

}  // namespace Norvane
