#include "providers/oid_provider_impl.h"

#include <new>
#include <optional>
#include <string>

#include "norvane/com.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

template <class T>
std::u16string Decimal(T number) {
  std::string digits = std::to_string(number);
  return std::u16string(digits.begin(), digits.end());
}

// The text form of a detection answer, following the usual variant-to-string
// rules for the kinds an SNMP connection produces. A byte array (an octet
// string the host could not read as text) becomes a string holding its bytes,
// two to a character, as the platform's conversion makes it; only its being
// empty or not matters here. Kinds that have no text form (null) give nothing:
// such a device is not accepted.
std::optional<std::u16string> TextOf(const VARIANT& value) {
  switch (value.vt) {
    case VT_EMPTY:
      return std::u16string();
    case VT_BSTR:
      return value.bstrVal == nullptr ? std::u16string() : std::u16string(value.bstrVal, SysStringLen(value.bstrVal));
    case VT_I1:
      return Decimal(static_cast<int>(value.cVal));
    case VT_UI1:
      return Decimal(static_cast<unsigned>(value.bVal));
    case VT_I2:
      return Decimal(value.iVal);
    case VT_UI2:
      return Decimal(value.uiVal);
    case VT_I4:
      return Decimal(value.lVal);
    case VT_UI4:
      return Decimal(value.ulVal);
    case VT_INT:
      return Decimal(value.intVal);
    case VT_UINT:
      return Decimal(value.uintVal);
    case VT_I8:
      return Decimal(value.llVal);
    case VT_UI8:
      return Decimal(value.ullVal);
    case VT_BOOL:
      return std::u16string(value.boolVal != 0 ? u"True" : u"False");
    case VT_ARRAY | VT_UI1: {
      const SAFEARRAY* array = value.parray;
      if (array == nullptr || array->pvData == nullptr) return std::u16string();
      const auto* bytes = static_cast<const uint8_t*>(array->pvData);
      std::u16string text(array->rgsabound[0].cElements / 2, u'\0');
      for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
      }
      return text;
    }
    default:
      return std::nullopt;
  }
}

}  // namespace

OIDProviderImpl::OIDProviderImpl(MIBConnection* connection) : connection_(QxUtils::ShareRef(connection)) {}

OIDProviderImpl::~OIDProviderImpl() = default;

OIDProviderImpl* OIDProviderImpl::Create(Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDProviderImpl::Create");
  if (address == nullptr) return nullptr;
  // Only for detection: the provider holds its own reference.
  QxUtils::Ref<MIBConnection> connection;
  HRESULT hr = address->GetMIBConnection(connection.Out());
  if (FAILED(hr) || !connection) {
    QX_LOG(QxLogging::kStandout, "No SNMP connection to the device (0x%08x)", static_cast<unsigned>(hr));
    return nullptr;
  }

  OIDProviderImpl* provider = nullptr;
  Variant description;
  hr = connection->GetValue(kDetectionOid, description.Ptr());
  std::optional<std::u16string> text;
  if (SUCCEEDED(hr)) text = TextOf(description.Get());
  if (text.has_value() && !text->empty()) {
    provider = new (std::nothrow) OIDProviderImpl(connection.get());
    if (provider != nullptr) provider->AddRef();
  } else if (qxLog_.Enabled(QxLogging::kInfo)) {
    QX_LOG(QxLogging::kInfo, "The device gave no description over SNMP (0x%08x, type %u)", static_cast<unsigned>(hr),
           static_cast<unsigned>(description.Type()));
  }
  return provider;
}

HRESULT OIDProviderImpl::GetValue(const char16_t* oid, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDProviderImpl::GetValue");
  if (oid == nullptr || value == nullptr) return E_FAIL;
  std::u16string_view request(oid);
  size_t separator = request.find(u';');
  std::u16string readOid(request.substr(0, separator));
  HRESULT hr = connection_->GetValue(readOid.c_str(), value);
  if (separator == std::u16string_view::npos) return hr;

  std::u16string writeOid(request.substr(separator + 1));
  if (writeOid.empty()) return hr;
  Variant one = Variant::FromInt(1);
  hr = connection_->SetValue(writeOid.c_str(), &one.Get());
  if (FAILED(hr) && qxLog_.Enabled(QxLogging::kStandout)) {
    QX_LOG(QxLogging::kStandout, "Setting %s to 1 failed (0x%08x)", QxUtils::WideToUtf8(writeOid).c_str(),
           static_cast<unsigned>(hr));
  }
  return hr;
}

HRESULT OIDProviderImpl::GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize,
                                            VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDProviderImpl::GetNextOidAndValue");
  if (oid == nullptr || nextOid == nullptr || value == nullptr || nextOidSize == 0) return E_FAIL;
  return connection_->GetNextOidAndValue(oid, nextOid, nextOidSize, value);
}

HRESULT OIDProviderImpl::GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDProviderImpl::GetMultipleValues");
  if (oids == nullptr || values == nullptr || count == 0) return E_FAIL;
  return connection_->GetMultipleValues(oids, values, count);
}

}  // namespace Norvane
