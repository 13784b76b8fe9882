// Items read as IPP printer or job attributes, and the IPPParams item that
// carries a data map's request parameters.
#include <libxml/tree.h>

#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

using DataMapDetail::CopyText;
using DataMapDetail::Created;

IPPDataItemSpec::IPPDataItemSpec() = default;

IPPDataItemSpec::IPPDataItemSpec(const xmlNode* element) : DataItemSpec(element) {
  if (!Xml::IsElement(element)) return;
  const xmlAttr* attributes = AttributesOf(element);
  command_ = TextValueOf(attributes, "Command");
  jobUri_ = TextValueOf(attributes, "JobURI");
  resourceUri_ = TextValueOf(attributes, "ResourceURI");
  charset_ = TextValueOf(attributes, "Charset");
  lang_ = TextValueOf(attributes, "Lang");
}

IPPDataItemSpec::IPPDataItemSpec(const char16_t* name, const char16_t* command, bool transient, const char16_t* prefix,
                                 const char16_t* jobUri, uint64_t lifespan, const char16_t* type)
    : DataItemSpec(name, transient, prefix, lifespan, type) {
  // A job URI means nothing without the command that addresses the job.
  if (command != nullptr) {
    command_ = CopyText(command);
    jobUri_ = CopyText(jobUri);
  }
}

IPPDataItemSpec::IPPDataItemSpec(const IPPDataItemSpec& other) = default;
IPPDataItemSpec& IPPDataItemSpec::operator=(const IPPDataItemSpec& other) = default;
IPPDataItemSpec::~IPPDataItemSpec() = default;

void IPPDataItemSpec::Initialize() {
  command_ = BStr();
  jobUri_ = BStr();
  resourceUri_ = BStr();
  charset_ = BStr();
  lang_ = BStr();
}

IPPDataItemSpec* IPPDataItemSpec::CreateIPPDataItemSpec() { return Created(new (std::nothrow) IPPDataItemSpec()); }

IPPDataItemSpec* IPPDataItemSpec::CreateIPPDataItemSpec(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPDataItemSpec::CreateIPPDataItemSpec");
  return Created(new (std::nothrow) IPPDataItemSpec(element));
}

IPPDataItemSpec* IPPDataItemSpec::CreateIPPDataItemSpec(const char16_t* name, const char16_t* command, bool transient,
                                                        const char16_t* prefix, const char16_t* jobUri,
                                                        uint64_t lifespan, const char16_t* type) {
  return Created(new (std::nothrow) IPPDataItemSpec(name, command, transient, prefix, jobUri, lifespan, type));
}

}  // namespace Norvane
