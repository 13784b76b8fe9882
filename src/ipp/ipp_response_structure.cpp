// Copying the job values of a decoded response into a response object.
#include <cstdlib>
#include <string>

#include "ipp/ipp_operations.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The first text stored under exactly `name`; false when there is none.
bool FirstText(const IppValueMap& map, std::string_view name, std::string* text) {
  bool found = false;
  map.ForEachValue(name, [&](const IppValueMap::Value& v) {
    if (v.kind != IppValueMap::Kind::kText) return true;
    text->assign(v.data);
    found = true;
    return false;
  });
  return found;
}

}  // namespace

void IPPOperations::GetJobState(int32_t state, std::string* text) {
  static constexpr const char* kStates[] = {"Pending",  "Pending_held", "Processing", "Processing_stopped",
                                            "Canceled", "Aborted",      "Completed"};
  if (text != nullptr && state >= 3 && state <= 9) *text = kStates[state - 3];
}

HRESULT IPPOperations::FormResponseStructure(uint32_t operation, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::FormResponseStructure");
  if (response == nullptr) return E_FAIL;
  std::string text;
  response->SetSuccess(FirstText(valueMap_, "status-code", &text) ? text.c_str() : "NOT_SET_ERROR");
  response->SetRequestID("100");
  if (operation == kIppCancelJob) return S_OK;

  if (FirstText(valueMap_, "document-access-error", &text)) response->SetDocumentAccessError(text.c_str());
  if (FirstText(valueMap_, "job-uri", &text)) response->SetJobURI(text.c_str());
  if (FirstText(valueMap_, "job-id", &text)) response->SetJobID(std::atoi(text.c_str()));
  if (FirstText(valueMap_, "job-state", &text)) {
    std::string state;
    GetJobState(std::atoi(text.c_str()), &state);
    if (!state.empty()) response->SetJobState(state.c_str());
  }
  std::string reasons;
  valueMap_.ForEachValue("job-state-reasons", [&](const IppValueMap::Value& v) {
    if (v.kind == IppValueMap::Kind::kText) {
      if (!reasons.empty()) reasons.push_back(',');
      reasons.append(v.data);
    }
    return true;
  });
  if (!reasons.empty()) response->SetJobStateReasons(reasons.c_str());
  QX_LOG(QxLogging::kInfo, "status %s, job %d", response->GetSuccessStatus(), response->GetJobID());
  return S_OK;
}

}  // namespace Norvane
