// The collection over an XML data map (discovery tree, product information or
// web services): values the table does not hold are selected by XPath from the
// device's documents through one XML provider, converted, and kept in the
// table with the item's lifespan unless the item is transient.
#pragma once

#include <string>

#include "engine/data_collection_impl.h"
#include "norvane/datamap.h"
#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "support/ref.h"

namespace Norvane {

class XMLDataMapper : public DisposableObject<DataCollectionImpl> {
 public:
  // One reference for the caller; the mapper holds its own on each non-null
  // argument. Null when the data map is null.
  static XMLDataMapper* Create(IXMLProvider* provider, DataMapSpec* dataMap);

  // `name` is "prefix:item" or "item" (everything after the first colon names
  // the item). The table answers first. S_FALSE when the device has no such
  // node and the conversions supply nothing; `value` is written only on S_OK.
  HRESULT GetValue(const char16_t* name, VARIANT* value) override;
  // XMLDataMap[@Protocol='...'] with the protocol the provider's port stands for.
  std::u16string GetDataMapName() override;
  const char* GetTypeName() override { return "Norvane::XMLDataMapper"; }

 private:
  XMLDataMapper(IXMLProvider* provider, DataMapSpec* dataMap);
  ~XMLDataMapper() override;

  QxUtils::Ref<IXMLProvider> provider_;
  QxUtils::Ref<DataMapSpec> dataMap_;
};

}  // namespace Norvane
