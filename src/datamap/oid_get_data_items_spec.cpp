// Items that generate a sequence of OIDs from a template with "N" in place of a
// row index.
#include <libxml/tree.h>

#include <new>
#include <string>

#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

using DataMapDetail::CopyText;
using DataMapDetail::Created;

OIDGetDataItemsSpec::OIDGetDataItemsSpec() : n_(std::u16string_view()) {}

OIDGetDataItemsSpec::OIDGetDataItemsSpec(const xmlNode* element) : OIDDataItemSpec(element), n_(std::u16string_view()) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  untilEnd_ = BoolValueOf(attributes, "UntilEnd");
  count_ = IntValueOf(attributes, "Count");
  n_ = TextValueOf(attributes, "N");
  nCounter_ = IntValueOf(attributes, "N");
}

OIDGetDataItemsSpec::OIDGetDataItemsSpec(const char16_t* name, const char16_t* oid, const char16_t* group,
                                         bool transient, const char16_t* prefix, uint64_t lifespan,
                                         const char16_t* type, bool untilEnd, int32_t count, const char16_t* n)
    : OIDDataItemSpec(name, oid, group, transient, prefix, lifespan, type),
      n_(CopyText(n)),
      count_(count),
      untilEnd_(untilEnd) {}

OIDGetDataItemsSpec::OIDGetDataItemsSpec(const OIDGetDataItemsSpec& other) = default;
OIDGetDataItemsSpec& OIDGetDataItemsSpec::operator=(const OIDGetDataItemsSpec& other) = default;
OIDGetDataItemsSpec::~OIDGetDataItemsSpec() = default;

void OIDGetDataItemsSpec::Initialize() {
  n_ = BStr(std::u16string_view());
  nCounter_ = 0;
  count_ = 0;
  untilEnd_ = false;
}

NextOIDDataItemSpec* OIDGetDataItemsSpec::GetNextOIDDataItemSpec() { return nullptr; }
OIDGetDataItemsSpec* OIDGetDataItemsSpec::GetOIDGetDataItemsSpec() { return this; }

std::u16string OIDGetDataItemsSpec::FindAndReplaceNInOID() {
  const char16_t* stored = OIDDataItemSpec::GetOid();
  std::u16string oid = stored == nullptr ? std::u16string() : std::u16string(stored);
  size_t n = oid.find(u'N');
  if (n != std::u16string::npos) {
    std::string decimal = std::to_string(nCounter_);
    std::u16string digits(decimal.begin(), decimal.end());
    oid.replace(n, 1, digits);
  }
  // The counter wraps rather than overflowing after 2^31 calls.
  nCounter_ = static_cast<int32_t>(static_cast<uint32_t>(nCounter_) + 1u);
  return oid;
}

std::u16string OIDGetDataItemsSpec::GetOid() {
  if (n_.Get() == nullptr) return std::u16string();
  return FindAndReplaceNInOID();
}

std::u16string OIDGetDataItemsSpec::GetNextOid() { return FindAndReplaceNInOID(); }

OIDGetDataItemsSpec* OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec() {
  return Created(new (std::nothrow) OIDGetDataItemsSpec());
}

OIDGetDataItemsSpec* OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec");
  return Created(new (std::nothrow) OIDGetDataItemsSpec(element));
}

OIDGetDataItemsSpec* OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(const char16_t* name, const char16_t* oid,
                                                                    const char16_t* group, bool transient,
                                                                    const char16_t* prefix, uint64_t lifespan,
                                                                    const char16_t* type, bool untilEnd, int32_t count,
                                                                    const char16_t* n) {
  return Created(new (std::nothrow)
                     OIDGetDataItemsSpec(name, oid, group, transient, prefix, lifespan, type, untilEnd, count, n));
}

}  // namespace Norvane
