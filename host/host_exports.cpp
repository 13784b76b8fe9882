// The flat entry points of libnorvane-host.
#include <curl/curl.h>

#include "net_address.h"
#include "norvane/host.h"
#include "text.h"

namespace {

NorvaneHost::NetAddressImpl* Ours(Norvane::QxNetAddress* address) {
  return dynamic_cast<NorvaneHost::NetAddressImpl*>(address);
}

}  // namespace

extern "C" Norvane::QxNetAddress* CreateNetAddress(const char16_t* host) {
  NorvaneHost::EnsureCurlStarted();
  return NorvaneHost::NetAddressImpl::Create(host);
}

extern "C" HRESULT NetAddressSetSnmpCommunity(Norvane::QxNetAddress* address, const char16_t* community) {
  auto* ours = Ours(address);
  if (ours == nullptr) return E_INVALIDARG;
  ours->SetSnmpCommunity(NorvaneHost::WideToUtf8(community));
  return S_OK;
}

extern "C" HRESULT NetAddressSetSnmpVersion(Norvane::QxNetAddress* address, uint32_t version) {
  auto* ours = Ours(address);
  if (ours == nullptr || version < NORVANE_SNMP_VERSION_1 || version > NORVANE_SNMP_VERSION_3) {
    return E_INVALIDARG;
  }
  ours->SetSnmpVersion(version);
  return S_OK;
}

extern "C" HRESULT NetAddressSetSnmpUser(Norvane::QxNetAddress* address, const char16_t* user, uint32_t securityLevel,
                                         const char16_t* context) {
  auto* ours = Ours(address);
  std::string name = NorvaneHost::WideToUtf8(user);
  if (ours == nullptr || name.empty() || securityLevel < NORVANE_SNMP_NO_AUTH_NO_PRIV ||
      securityLevel > NORVANE_SNMP_AUTH_PRIV) {
    return E_INVALIDARG;
  }
  ours->SetSnmpUser(std::move(name), securityLevel, NorvaneHost::WideToUtf8(context));
  return S_OK;
}

extern "C" HRESULT NetAddressSetSnmpAuthentication(Norvane::QxNetAddress* address, uint32_t protocol,
                                                   const char16_t* passphrase) {
  auto* ours = Ours(address);
  NorvaneHost::Secret secret(NorvaneHost::WideToUtf8(passphrase));
  if (ours == nullptr || protocol < NORVANE_SNMP_AUTH_SHA1 || protocol > NORVANE_SNMP_AUTH_SHA512 ||
      secret.size() < NorvaneHost::kMinSnmpPassphrase) {
    return E_INVALIDARG;
  }
  ours->SetSnmpAuthentication(protocol, std::move(secret));
  return S_OK;
}

extern "C" HRESULT NetAddressSetSnmpPrivacy(Norvane::QxNetAddress* address, uint32_t protocol,
                                            const char16_t* passphrase) {
  auto* ours = Ours(address);
  NorvaneHost::Secret secret(NorvaneHost::WideToUtf8(passphrase));
  if (ours == nullptr || protocol < NORVANE_SNMP_PRIV_AES128 || protocol > NORVANE_SNMP_PRIV_AES256 ||
      secret.size() < NorvaneHost::kMinSnmpPassphrase) {
    return E_INVALIDARG;
  }
  ours->SetSnmpPrivacy(protocol, std::move(secret));
  return S_OK;
}

extern "C" HRESULT NetAddressSetSnmpPort(Norvane::QxNetAddress* address, uint32_t port) {
  auto* ours = Ours(address);
  if (ours == nullptr || port == 0 || port > 65535) return E_INVALIDARG;
  ours->SetSnmpPort(port);
  return S_OK;
}

extern "C" HRESULT NetAddressSetSnmpTimeout(Norvane::QxNetAddress* address, uint32_t milliseconds, uint32_t retries) {
  auto* ours = Ours(address);
  // net-snmp counts in microseconds in a long; an hour is more than enough.
  if (ours == nullptr || milliseconds == 0 || milliseconds > 3600000 || retries > 20) return E_INVALIDARG;
  ours->SetSnmpTimeout(milliseconds, retries);
  return S_OK;
}

extern "C" HRESULT NetAddressSetHttpTimeouts(Norvane::QxNetAddress* address, uint32_t connectMilliseconds,
                                             uint32_t readMilliseconds) {
  auto* ours = Ours(address);
  if (ours == nullptr) return E_INVALIDARG;
  ours->SetHttpTimeouts(connectMilliseconds, readMilliseconds);
  return S_OK;
}

extern "C" HRESULT NetAddressSetIppFieldCompatibility(Norvane::QxNetAddress* address, int on) {
  auto* ours = Ours(address);
  if (ours == nullptr) return E_INVALIDARG;
  ours->SetIppFieldCompatibility(on != 0);
  return S_OK;
}

extern "C" uint32_t NetAddressIppAnsweredVersion(Norvane::QxNetAddress* address) {
  auto* ours = Ours(address);
  return ours == nullptr ? 0 : ours->GetIppAnsweredVersion();
}

extern "C" uint32_t NetAddressChunkedRefusal(Norvane::QxNetAddress* address) {
  auto* ours = Ours(address);
  return ours == nullptr ? 0 : ours->ChunkedRefusal();
}

extern "C" HRESULT NetAddressSetNextStreamLength(Norvane::QxNetAddress* address, uint64_t rest) {
  auto* ours = Ours(address);
  if (ours == nullptr) return E_INVALIDARG;
  ours->SetNextStreamLength(rest);
  return S_OK;
}

extern "C" const char* NetAddressErrorText(uint32_t code) { return curl_easy_strerror(static_cast<CURLcode>(code)); }

extern "C" const char* NetAddressResolveError(Norvane::QxNetAddress* address) {
  auto* ours = Ours(address);
  return ours == nullptr ? nullptr : ours->ResolveError();
}
