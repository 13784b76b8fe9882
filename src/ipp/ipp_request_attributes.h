// The request attribute object behind IPPRequestBase: a plain holder of what a
// caller prints with. The encoder reads it through the interface getters and,
// for the caller's extra attributes, through the two lists below.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "norvane/ipp.h"

namespace Norvane {

class IPPRequestAttributes : public DisposableObject<IPPRequestBase> {
 public:
  // A new object with one reference for the caller; null when memory runs out.
  static IPPRequestBase* Create();

  HRESULT SetPrinterURI(const char* uri) override;
  const char* GetPrinterURI() override;
  void SetCopy(int32_t copies) override { copies_ = copies; }
  int32_t GetCopy() override { return copies_; }
  HRESULT SetRequestingUserName(const char* name) override;
  const char* GetRequestingUserName() override;
  HRESULT SetDocumentUri(const char* uri) override;
  const char* GetDocumentUri() override;
  HRESULT SetJobName(const char* name) override;
  const char* GetJobName() override;
  void SetIPPAttributeFidelity(bool fidelity) override { fidelity_ = fidelity; }
  bool GetIPPAttributeFidelity() override { return fidelity_; }
  HRESULT SetDocumentName(const char* name) override;
  const char* GetDocumentName() override;
  void SetMultipleDocHandling(int32_t handling) override { multipleDocHandling_ = handling; }
  int32_t GetMultipleDocHandling() override { return multipleDocHandling_; }
  void SetPrintingSides(int32_t sides) override { printingSides_ = sides; }
  int32_t GetPrintingSides() override { return printingSides_; }
  void SetOrientationRequested(int32_t orientation) override { orientation_ = orientation; }
  int32_t GetOrientationRequested() override { return orientation_; }
  void SetPrinterResolution(uint32_t crossFeed, uint32_t feed) override;
  void GetPrinterResolution(uint32_t* crossFeed, uint32_t* feed) override;
  void SetPrinterResolutionUnits(int32_t units) override;
  int32_t GetPrinterResolutionUnits() override { return resolutionUnits_; }
  void SetPrintQuality(int32_t quality) override { printQuality_ = quality; }
  int32_t GetPrintQuality() override { return printQuality_; }
  void SetOutputMode(uint32_t mode) override { outputMode_ = mode; }
  uint32_t GetOutputMode() override { return outputMode_; }
  void SetPrintContentOptimize(uint32_t optimize) override { contentOptimize_ = optimize; }
  uint32_t GetPrintContentOptimize() override { return contentOptimize_; }
  void SetMarginsPreApplied(bool applied) override { marginsPreApplied_ = applied; }
  bool GetMarginsPreApplied() override { return marginsPreApplied_; }
  HRESULT SetJobURI(const char* uri) override;
  const char* GetJobURI() override;
  void SetLastDocument(bool last) override { lastDocument_ = last; }
  bool GetLastDocument() override { return lastDocument_; }
  HRESULT SetUsername(const char16_t* name) override;
  const char16_t* GetUsername() override;
  HRESULT SetPassword(const char16_t* password) override;
  const char16_t* GetPassword() override;
  HRESULT AddExtraHTTPHeader(const char16_t* name, const char16_t* value) override;
  HRESULT AddIPPRequest(uint32_t group, const uint8_t* bytes, int32_t size) override;
  HRESULT AddIPPRequest(const IPPAttributeStruct& attribute) override;
  void SetAuthorization(std::u16string authorization) override;
  std::u16string GetAuthorization() override { return authorization_; }
  const std::map<std::u16string, std::u16string>& GetExtraHTTPHeader() override { return extraHeaders_; }

  // The caller's extra attributes in insertion order, for the encoder.
  const std::vector<IPPAttributeStruct>& GetAttributesVector() const { return attributes_; }
  const std::vector<IPPAttributeBlob>& GetBlobVector() const { return blobs_; }

 private:
  IPPRequestAttributes() = default;
  ~IPPRequestAttributes() override = default;

  std::optional<std::string> printerURI_;
  std::optional<std::string> requestingUserName_;
  std::optional<std::string> documentUri_;
  std::optional<std::string> jobName_;
  bool fidelity_ = false;
  std::optional<std::string> documentName_;
  std::optional<std::u16string> userName_;
  std::optional<std::u16string> password_;
  int32_t multipleDocHandling_ = -1;
  int32_t copies_ = 1;
  int32_t printingSides_ = 3;
  int32_t orientation_ = 2;
  uint32_t resolutionCrossFeed_ = 0;
  uint32_t resolutionFeed_ = 0;
  int32_t resolutionUnits_ = 0;
  int32_t printQuality_ = 2;
  uint32_t outputMode_ = 0;
  uint32_t contentOptimize_ = 0;
  bool marginsPreApplied_ = true;
  std::optional<std::string> jobURI_;
  bool lastDocument_ = false;
  std::map<std::u16string, std::u16string> extraHeaders_;
  std::vector<IPPAttributeStruct> attributes_;
  std::vector<IPPAttributeBlob> blobs_;
  std::u16string authorization_;
};

}  // namespace Norvane
