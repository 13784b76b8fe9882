#include "ipp/ipp_response_attributes.h"

#include <new>

#include "ipp/ipp_text_field.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

IPPResponseBase::~IPPResponseBase() = default;

IPPResponseBase* IPPResponseAttributes::Create() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPResponseAttributes::Create");
  auto* object = new (std::nothrow) IPPResponseAttributes();
  if (object == nullptr) {
    QX_LOG(QxLogging::kStandout, "Unable to allocate memory for IPPResponseAttributes");
    return nullptr;
  }
  object->AddRef();
  return object;
}

HRESULT IPPResponseAttributes::SetSuccess(const char* status) { return IppText::Store(&success_, status); }
const char* IPPResponseAttributes::GetSuccessStatus() { return IppText::Get(success_); }
HRESULT IPPResponseAttributes::SetRequestID(const char* id) { return IppText::Store(&requestId_, id); }
const char* IPPResponseAttributes::GetRequestID() { return IppText::Get(requestId_); }
HRESULT IPPResponseAttributes::SetDocumentAccessError(const char* text) {
  return IppText::Store(&documentAccessError_, text);
}
const char* IPPResponseAttributes::GetDocumentAccessError() { return IppText::Get(documentAccessError_); }
HRESULT IPPResponseAttributes::SetJobURI(const char* uri) { return IppText::Store(&jobURI_, uri); }
const char* IPPResponseAttributes::GetJobURI() { return IppText::Get(jobURI_); }
HRESULT IPPResponseAttributes::SetJobState(const char* state) { return IppText::Store(&jobState_, state); }
const char* IPPResponseAttributes::GetJobState() { return IppText::Get(jobState_); }
HRESULT IPPResponseAttributes::SetJobStateReasons(const char* reasons) {
  return IppText::Store(&jobStateReasons_, reasons);
}
const char* IPPResponseAttributes::GetJobStateReasons() { return IppText::Get(jobStateReasons_); }

}  // namespace Norvane
