// Attribute queries of the IPP provider: the cached printer attributes first,
// then fresh Get-Printer-Attributes or Get-Job-Attributes requests.
#include <string>
#include <string_view>
#include <vector>

#include "ipp/ipp_provider_impl.h"
#include "norvane/com.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

constexpr std::string_view kAlternativeSeparator = "_OR_";

std::vector<std::string> SplitAlternatives(std::string_view name) {
  std::vector<std::string> alternatives;
  for (;;) {
    size_t at = name.find(kAlternativeSeparator);
    alternatives.emplace_back(name.substr(0, at));
    if (at == std::string_view::npos) break;
    name.remove_prefix(at + kAlternativeSeparator.size());
  }
  return alternatives;
}

}  // namespace

HRESULT IPPProviderImpl::GetValue(const char* name, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetValue");
  if (name == nullptr || value == nullptr) return E_FAIL;
  std::string resource = QxUtils::WideToUtf8(resourceURI_);
  std::vector<std::string> alternatives = SplitAlternatives(name);
  for (size_t i = 0; i < alternatives.size(); ++i) {
    const std::string& alternative = alternatives[i];
    Variant cached;
    if (queryOperations_->GetValueFromIPPMap(alternative.c_str(), cached.Ptr()) == 1 && cached.Type() != VT_EMPTY) {
      *value = cached.Detach();
      return S_OK;
    }

    // Only the last alternative may be a collection query: name[selector].member.
    std::string attribute = alternative;
    int32_t isCollectionQuery = 0;
    std::string query = " ";
    size_t bracket = alternative.find('[', 1);
    if (i + 1 == alternatives.size() && bracket != std::string::npos) {
      attribute = alternative.substr(0, bracket);
      isCollectionQuery = 1;
      query = alternative;
    }
    HRESULT hr = GetIPPValue(attribute.c_str(), 0, value, nullptr, resource.c_str(),
                             queryOperations_->GetSecurityFlags(), isCollectionQuery, query.c_str());
    // An attribute the printer does not return decodes to no value and still
    // answers the call: only a failed query moves on.
    if (hr >= 0) return S_OK;
    VariantClear(value);
  }
  QX_LOG(QxLogging::kStandout, "No value for %s", name);
  return E_FAIL;
}

HRESULT IPPProviderImpl::GetIPPValue(const char* name, uint32_t getJob, VARIANT* value, const char* jobURI,
                                     const char* resourceURI, uint32_t securityFlags, int32_t isCollectionQuery,
                                     const char* collectionQuery) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetIPPValue");
  // A collection answered before is answered from the records kept then.
  if (isCollectionQuery == 1 && queryOperations_->QueryCollection(collectionQuery, value)) return S_OK;
  if (name == nullptr) return E_FAIL;

  IPPOperations operations(address_.get());
  operations.SetAttributeName(name);
  operations.SetResourceURI(resourceURI);
  bool secure = GetURIScheme(printerURI_.c_str()) == IppUriScheme::kSecureIpp;
  if (secure && securityFlags == 0) securityFlags = queryOperations_->GetSecurityFlags();
  operations.SetSecurityFlags(securityFlags);
  operations.SetCollectionQueryFlag(static_cast<uint32_t>(isCollectionQuery));
  operations.SetCollectionQuery(collectionQuery);

  HTTPResponse* response = nullptr;
  HRESULT hr;
  if (getJob != 0) {
    operations.SetJobURI(jobURI);
    hr = operations.SendIPPRequest(kIppGetJobAttributes, &response, nullptr, secure);
    if (SUCCEEDED(hr)) hr = operations.ParseIPPResponse(response, value);
  } else {
    if (jobURI != nullptr && *jobURI != 0) operations.SetFullPrinterURI(QxUtils::Utf8ToWide(jobURI).c_str());
    hr = operations.SendIPPRequest(kIppGetPrinterAttributes, &response, nullptr, secure);
    if (SUCCEEDED(hr)) {
      hr = operations.ParseIPPResponse(response, value);
      QX_LOG(QxLogging::kInfo, "ptrIPPOperations->ParseIPPResponse(httpResponse,&value) GetIPPValue done");
      if (SUCCEEDED(hr) && isCollectionQuery == 1) queryOperations_->ReplaceCollectionRecords(operations, name);
    }
  }
  return FAILED(hr) ? E_FAIL : hr;
}

}  // namespace Norvane
