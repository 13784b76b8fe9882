// The device's discovery-tree data model on port 8080. A data item may name a
// resource by its type ("vexa:qvVexaProductConfigDyn") instead of its path; the
// type is resolved through the discovery tree, which is fetched once per
// provider and answers every later lookup from the document cache.
#pragma once

#include "providers/xml_provider.h"

namespace Norvane {

class VEXAProviderImpl final : public XMLProviderObject<VEXAProvider> {
 public:
  static constexpr uint32_t kPort = 8080;
  static constexpr const char16_t* kDiscoveryTreePath = u"/DevMgmt/DiscoveryTree.xml";
  // The resource whose presence in the tree makes a device one of ours.
  static constexpr const char16_t* kProductConfigType = u"vexa:qvVexaProductConfigDyn";

  // Detection: a provider with one reference for the caller when the device's
  // discovery tree lists the product-configuration resource; null otherwise.
  static VEXAProviderImpl* Create(Address* address);

  // The XPath that finds the URI listed for `resourceType` (inserted verbatim).
  static std::u16string ResourceLookupExpression(std::u16string_view resourceType);

  // `uri` that does not begin with "/" is a resource type; an unresolvable type
  // is used as the URI unchanged and the fetch decides.
  HRESULT GetValue(const char16_t* uri, const char16_t* xpath, char16_t* buffer, uint32_t bufferSize,
                   uint32_t* requiredSize, uint32_t useCache, uint32_t lifespan) override;
  HRESULT GetResourceURI(const char16_t* resourceType, char16_t* buffer, uint32_t bufferSize, uint32_t* requiredSize,
                         uint32_t lifespan) override;

  const char* GetTypeName() override { return "Norvane::VEXAProviderImpl"; }

 private:
  explicit VEXAProviderImpl(Address* address) : XMLProviderObject(address, kPort) {}
  ~VEXAProviderImpl() override = default;
};

}  // namespace Norvane
