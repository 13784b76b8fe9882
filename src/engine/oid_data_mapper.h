// The collection of an OIDDataMap: values come from the collection's own table
// first and from the device's SNMP objects through the OID provider otherwise.
//
// Request names are [prefix ":"] item ["." sequence]. Besides single objects the
// mapper reads groups (several objects in one request, joined with ","), and
// tables by two kinds of walk: get-next from a base OID (NextDataItem) and OIDs
// generated from a template (GetDataItems). A walk stores every element under
// key.001, key.002, ... (the base object under key.000 and the marker text
// "key.###" under the plain key), so the rest of a table is answered without
// asking the device again.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/data_collection_impl.h"
#include "norvane/com.h"
#include "norvane/datamap.h"
#include "norvane/interfaces.h"
#include "support/ref.h"

namespace Norvane {

class OIDDataMapper : public DisposableObject<DataCollectionImpl> {
 public:
  // One reference for the caller; the mapper holds its own on both arguments.
  static OIDDataMapper* Create(OIDProvider* provider, DataMapSpec* dataMap);

  HRESULT GetValue(const char16_t* name, VARIANT* value) override;
  std::u16string GetDataMapName() override { return u"OIDDataMap"; }
  const char* GetTypeName() override { return "Norvane::OIDDataMapper"; }

  // Decimal, zero-padded to at least three digits: 000, 007, 1000.
  static std::u16string GetSequenceString(uint32_t number);
  // [prefix ":"] name ["." sequence]; E_FAIL when the name is empty.
  static HRESULT ConstructKey(std::u16string_view prefix, std::u16string_view name, const std::u16string_view* sequence,
                              std::u16string* key);

 private:
  OIDDataMapper(OIDProvider* provider, DataMapSpec* dataMap);
  ~OIDDataMapper() override;

  // The parts of a request name and the item it names.
  struct DataNode {
    std::u16string prefix;
    std::u16string itemName;
    std::u16string sequence;
    OIDDataItemSpec* item = nullptr;
  };
  void GetDataNode(std::u16string_view name, DataNode* node);

  HRESULT GetDataItem(const char16_t* name, OIDDataItemSpec* item, VARIANT* value);
  HRESULT GetDataItemsInSequnce(const DataNode& node, VARIANT* value);
  HRESULT GetNextDataItem(const DataNode& node, VARIANT* value);
  std::vector<std::u16string> PopulateOidListForGroupID(std::u16string_view group);

  // One element of a walk. `repeated` reports that the element's OID is the one
  // asked about, i.e. the walk cannot make progress.
  using WalkStep = std::function<HRESULT(Variant* element, bool* repeated)>;
  struct Walk {
    int32_t count = 0;
    bool untilEnd = false;
    std::function<HRESULT(Variant* base)> readBase;
    WalkStep next;
  };
  HRESULT RunWalk(const DataNode& node, Walk* walk, VARIANT* value);

  // The item's conversions applied to a raw value.
  static Variant Converted(const NvoDataItem& item, const VARIANT& raw);
  void Store(const std::u16string& key, const Variant& value, const DataItemSpec& item);

  QxUtils::Ref<OIDProvider> provider_;
  QxUtils::Ref<DataMapSpec> dataMap_;
  std::optional<ComponentRuntimeScope> runtime_;
};

}  // namespace Norvane
