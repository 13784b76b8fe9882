// The product-information document on port 80, read with plain GETs.
#pragma once

#include "providers/xml_provider.h"

namespace Norvane {

class PLSXMLProviderImpl final : public XMLProviderObject<PLSXMLProvider> {
 public:
  static constexpr uint32_t kPort = 80;
  static constexpr const char16_t* kProductInformationPath = u"/qv/device/product_information.xml";
  static constexpr const char16_t* kSerialNumberXPath = u"//ProductSerialNumber";

  // Detection: a provider with one reference for the caller when the device
  // serves the product-information document with a serial number; null
  // otherwise (also for a null address).
  static PLSXMLProviderImpl* Create(Address* address);

  const char* GetTypeName() override { return "Norvane::PLSXMLProviderImpl"; }

 private:
  explicit PLSXMLProviderImpl(Address* address) : XMLProviderObject(address, kPort) {}
  ~PLSXMLProviderImpl() override = default;
};

}  // namespace Norvane
