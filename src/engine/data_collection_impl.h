// The data collection: a value table with lifespans in front of one provider.
// Each mapper (XML, OID, IPP) derives from this class; the creation functions
// pick the first data map whose protocol the device answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "engine/value_index.h"
#include "norvane/datamap.h"
#include "norvane/interfaces.h"
#include "norvane/transport.h"
#include "norvane/values.h"
#include "support/ref.h"
#include "support/runtime_scope.h"

typedef struct _xmlNode xmlNode;

namespace Norvane {

class DataCollectionImpl : public DataCollection {
 public:
  // The engines of the exported creation functions. On success *collection
  // receives the mapper with one reference for the caller; on failure it is not
  // written.
  static HRESULT CreateFromFile(Address* address, const char16_t* path, DataCollection** collection,
                                ICacheProvider* cache);
  static HRESULT CreateFromXML(Address* address, const char16_t* text, DataCollection** collection,
                               ICacheProvider* cache);
  static HRESULT CreateFromDOM(Address* address, xmlNode* node, DataCollection** collection, ICacheProvider* cache);
  static HRESULT CreateFromSpecs(Address* address, DataMapSpecCollection* specs, DataCollection** collection,
                                 ICacheProvider* cache);
  // 0 when the device reports a print-contract version over IPP.
  static HRESULT IsPrintContractDevice(Address* address);

  HRESULT GetValue(const char16_t* key, VARIANT* value) override;
  HRESULT RemoveValuesWithPrefix(const char16_t* prefix) override;

  // The selection expression of this mapper's data map element.
  virtual std::u16string GetDataMapName() = 0;
  // Stores the data map's static items (lifespan 0) and takes them out of it.
  virtual HRESULT LoadStaticValues(DataMapSpec* dataMap);
  virtual HRESULT StoreValue(const char16_t* key, const VARIANT* value, uint32_t lifespan);

  // Fills the table from a registry or printer-data cache; 1 for any other.
  HRESULT PopulateValueFromCache(ICacheProvider* cache, DataMapSpec* dataMap);
  // Keeps the cache (one reference) to hand it the table at destruction.
  void SetCache(ICacheProvider* cache);
  ICacheProvider* GetCache() const { return cache_.get(); }
  const ValueTable& GetValueTable() const { return values_; }

 protected:
  DataCollectionImpl();
  ~DataCollectionImpl() override;

 private:
  const CachedValue* FindValue(std::u16string_view key);
  void ForgetIndex() { index_.Clear(); }

  QxUtils::Ref<ICacheProvider> cache_;
  ValueTable values_;
  // values_ by key for GetValue; built at the first lookup after the table
  // changed other than through StoreValue.
  ValueIndex index_;
  std::optional<ComponentRuntimeScope> runtime_;
};

}  // namespace Norvane
