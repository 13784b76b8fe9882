// The response attribute object behind IPPResponseBase: the status and job
// values that FormResponseStructure copies out of a decoded response.
#pragma once

#include <optional>
#include <string>

#include "norvane/ipp.h"

namespace Norvane {

class IPPResponseAttributes : public DisposableObject<IPPResponseBase> {
 public:
  // A new object with one reference for the caller; null when memory runs out.
  static IPPResponseBase* Create();

  HRESULT SetSuccess(const char* status) override;
  const char* GetSuccessStatus() override;
  HRESULT SetRequestID(const char* id) override;
  const char* GetRequestID() override;
  HRESULT SetDocumentAccessError(const char* text) override;
  const char* GetDocumentAccessError() override;
  HRESULT SetJobURI(const char* uri) override;
  const char* GetJobURI() override;
  void SetJobID(int32_t id) override { jobId_ = id; }
  int32_t GetJobID() override { return jobId_; }
  HRESULT SetJobState(const char* state) override;
  const char* GetJobState() override;
  HRESULT SetJobStateReasons(const char* reasons) override;
  const char* GetJobStateReasons() override;

 private:
  IPPResponseAttributes() = default;
  ~IPPResponseAttributes() override = default;

  std::optional<std::string> success_;
  std::optional<std::string> requestId_;
  std::optional<std::string> documentAccessError_;
  std::optional<std::string> jobURI_;
  int32_t jobId_ = 0;
  std::optional<std::string> jobState_;
  std::optional<std::string> jobStateReasons_;
};

}  // namespace Norvane
