#include "ipp/ipp_operations.h"

#include <cstring>
#include <new>

#include "ipp/ipp_text_field.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// Copies a non-empty text into `field`; null, empty or no memory fail.
template <class Char>
HRESULT StoreNonEmpty(std::optional<std::basic_string<Char>>* field, const Char* text) {
  if (text == nullptr || *text == 0) return E_FAIL;
  return IppText::Store(field, text) == S_OK ? S_OK : E_FAIL;
}

}  // namespace

IPPOperations::IPPOperations(Address* address) : address_(address) {}

IPPOperations::~IPPOperations() = default;

HRESULT IPPOperations::SetAttributeName(const char* name) { return StoreNonEmpty(&attributeName_, name); }
const char* IPPOperations::GetAttributeName() const { return IppText::Get(attributeName_); }
HRESULT IPPOperations::SetResourceURI(const char* uri) { return StoreNonEmpty(&resourceURI_, uri); }
const char* IPPOperations::GetResourceURI() const { return IppText::Get(resourceURI_); }
HRESULT IPPOperations::SetJobURI(const char* uri) { return StoreNonEmpty(&jobURI_, uri); }
const char* IPPOperations::GetJobURI() const { return IppText::Get(jobURI_); }
HRESULT IPPOperations::SetRequestedUserName(const char* name) { return StoreNonEmpty(&requestingUserName_, name); }
const char* IPPOperations::GetRequestedUserName() const { return IppText::Get(requestingUserName_); }
HRESULT IPPOperations::SetCollectionQuery(const char* query) { return StoreNonEmpty(&collectionQuery_, query); }

HRESULT IPPOperations::SetFullPrinterURI(const char16_t* uri) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::SetFullPrinterURI");
  if (uri == nullptr || *uri == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return E_FAIL;
  }
  return StoreNonEmpty(&printerURI_, uri);
}

const char16_t* IPPOperations::GetFullPrinterURI() const { return IppText::Get(printerURI_); }

void IPPOperations::SetPrinterFileBufferContent(const uint8_t* data, int32_t length) {
  if (data == nullptr || length < 0) return;
  try {
    document_.assign(data, data + length);
    documentLength_ = static_cast<uint32_t>(length);
  } catch (const std::bad_alloc&) {
    document_.clear();
    documentLength_ = 0;
  }
}

void IPPOperations::AddPrinterFileBufferToRequestData(uint8_t* buffer, int32_t* offset) const {
  if (buffer == nullptr || offset == nullptr || *offset == 0 || documentLength_ == 0) return;
  std::memcpy(buffer + *offset, document_.data(), documentLength_);
  *offset += static_cast<int32_t>(documentLength_);
}

}  // namespace Norvane
