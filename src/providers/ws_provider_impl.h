// The device's printer description through its web-services print interface:
// every fetch POSTs one SOAP 1.2 GetPrinterElements request on port 3910 (as the
// user "guest", no password) and the answer is the document that data items
// select from. A data item names a service by URN; the HTTP path comes from the
// URN, and the parsed answer is cached under the URN.
#pragma once

#include <string>

#include "providers/xml_provider.h"

namespace Norvane {

class WSProviderImpl final : public XMLProviderObject<WSProvider> {
 public:
  static constexpr uint32_t kPort = 3910;
  static constexpr const char16_t* kDeviceServiceUrn = u"urn:qv:imaging:con:service:device:DeviceService";
  static constexpr const char16_t* kDeviceIdXPath = u"//wprt:DeviceId";

  // Detection: a provider with one reference for the caller when the device's
  // printer description has a device id; null otherwise.
  static WSProviderImpl* Create(Address* address);

  // Buffer protocol of XMLProvider; E_FAIL (requiredSize 0) for a URN without
  // two colons.
  HRESULT GetServicePath(const char16_t* urn, char16_t* buffer, uint32_t bufferSize, uint32_t* requiredSize) override;
  HRESULT GetContent(const char16_t* urn, std::string* content) override;

  // "/" and the URN's second-to-last colon-separated component:
  // "urn:a:b:device:DeviceService" gives "/device". E_FAIL without two colons.
  virtual HRESULT BuildServicePath(const char16_t* urn, std::u16string* path);
  // The request envelope, with fresh message and sender ids. The URN and path
  // do not change it: every request asks for the same five printer elements.
  // E_FAIL when no ids can be made or the host text is unreasonably long.
  virtual HRESULT BuildGetPrinterElementsRequest(const char16_t* urn, const char16_t* path, std::string* envelope);

  const char* GetTypeName() override { return "Norvane::WSProviderImpl"; }

 private:
  explicit WSProviderImpl(Address* address) : XMLProviderObject(address, kPort) {}
  ~WSProviderImpl() override = default;
};

}  // namespace Norvane
