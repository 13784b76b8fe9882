#include "providers/vexa_provider_impl.h"

#include <new>
#include <vector>

#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// Resolved resource URIs are short paths; a longer one costs a second lookup.
constexpr uint32_t kResourceUriBuffer = 256;

}  // namespace

VEXAProviderImpl* VEXAProviderImpl::Create(Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::VEXAProviderImpl::Create");
  if (address == nullptr) return nullptr;
  std::u16string probe = ResourceLookupExpression(kProductConfigType);
  return KeepWhenNodeExists(new (std::nothrow) VEXAProviderImpl(address), kDiscoveryTreePath, probe.c_str(), 0);
}

std::u16string VEXAProviderImpl::ResourceLookupExpression(std::u16string_view resourceType) {
  std::u16string expression(u"//.[dd:ResourceType=\"");
  expression.append(resourceType);
  expression.append(u"\"]/dd:ResourceURI");
  return expression;
}

HRESULT VEXAProviderImpl::GetResourceURI(const char16_t* resourceType, char16_t* buffer, uint32_t bufferSize,
                                         uint32_t* requiredSize, uint32_t lifespan) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::VEXAProviderImpl::GetResourceURI");
  if (resourceType == nullptr) return E_FAIL;
  std::u16string expression = ResourceLookupExpression(resourceType);
  return XMLProvider::GetValue(kDiscoveryTreePath, expression.c_str(), buffer, bufferSize, requiredSize, 1, lifespan);
}

HRESULT VEXAProviderImpl::GetValue(const char16_t* uri, const char16_t* xpath, char16_t* buffer, uint32_t bufferSize,
                                   uint32_t* requiredSize, uint32_t useCache, uint32_t lifespan) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::VEXAProviderImpl::GetValue");
  if (uri == nullptr || xpath == nullptr) return E_FAIL;
  // Paths are used as they are; anything else names a resource type.
  if (*uri == u'\0' || *uri == u'/') {
    return XMLProvider::GetValue(uri, xpath, buffer, bufferSize, requiredSize, useCache, lifespan);
  }
  // Lifespan 0: the tree fetched at creation answers every lookup.
  std::vector<char16_t> found(kResourceUriBuffer);
  uint32_t needed = 0;
  HRESULT hr = GetResourceURI(uri, found.data(), kResourceUriBuffer, &needed, 0);
  if (hr == E_OUTOFMEMORY && needed > kResourceUriBuffer) {
    found.assign(needed, u'\0');
    hr = GetResourceURI(uri, found.data(), needed, &needed, 0);
  }
  if (hr != S_OK) {
    // The type text itself is fetched; the device's answer decides.
    if (qxLog_.Enabled(QxLogging::kInfo)) {
      QX_LOG(QxLogging::kInfo, "The discovery tree lists no resource of type %s (0x%08x)",
             QxUtils::WideToUtf8(uri).c_str(), static_cast<unsigned>(hr));
    }
    return XMLProvider::GetValue(uri, xpath, buffer, bufferSize, requiredSize, useCache, lifespan);
  }
  return XMLProvider::GetValue(found.data(), xpath, buffer, bufferSize, requiredSize, useCache, lifespan);
}

}  // namespace Norvane
