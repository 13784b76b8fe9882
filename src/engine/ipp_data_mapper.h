// The collection over an IPP data map: values the table does not hold are read
// as printer or job attributes through the IPP provider.
#pragma once

#include <string>

#include "engine/data_collection_impl.h"
#include "norvane/datamap.h"
#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "support/ref.h"

namespace Norvane {

class IPPDataMapper : public DisposableObject<DataCollectionImpl> {
 public:
  // One reference for the caller; the mapper holds its own references on the
  // provider and the data map.
  static IPPDataMapper* Create(IPPProvider* provider, DataMapSpec* dataMap);

  // `name` is "prefix:item" or "item". The table answers first; otherwise the
  // item is read through the provider, converted, and (unless transient)
  // stored under `name` with the item's lifespan. `value` is written only on
  // success.
  HRESULT GetValue(const char16_t* name, VARIANT* value) override;
  std::u16string GetDataMapName() override { return u"IPPDataMap"; }

 private:
  IPPDataMapper(IPPProvider* provider, DataMapSpec* dataMap);
  ~IPPDataMapper() override;

  QxUtils::Ref<IPPProvider> provider_;
  QxUtils::Ref<DataMapSpec> dataMap_;
};

}  // namespace Norvane
