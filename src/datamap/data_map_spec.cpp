// One data map: the items of one protocol by key, with the walk the engine uses
// to visit and prune them.
#include <libxml/tree.h>

#include <memory>
#include <new>

#include "datamap/attribute_values.h"
#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"
#include "support/ref.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

using ItemFactory = NvoDataItem* (*)(const xmlNode*);

// The item elements a data-map element admits, tried in this order; the first
// name that matches decides the kind.
struct ItemKind {
  const char* element;
  ItemFactory create;
  bool isParams;  // stored under kParamsKey instead of its name
};

constexpr std::u16string_view kParamsKey = u"IPPParams";

NvoDataItem* NewXmlItem(const xmlNode* e) { return XMLDataItemSpec::CreateXMLDataItem(e); }
NvoDataItem* NewStaticItem(const xmlNode* e) { return StaticDataItemSpec::CreateStaticDataItemSpec(e); }
NvoDataItem* NewOidItem(const xmlNode* e) { return OIDDataItemSpec::CreateOIDDataItemSpec(e); }
NvoDataItem* NewNextOidItem(const xmlNode* e) { return NextOIDDataItemSpec::CreateNextOidDataItemSpec(e); }
NvoDataItem* NewGetItemsItem(const xmlNode* e) { return OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(e); }
NvoDataItem* NewIppItem(const xmlNode* e) { return IPPDataItemSpec::CreateIPPDataItemSpec(e); }

constexpr ItemKind kXmlItems[] = {{"DataItem", NewXmlItem, false}, {"StaticDataItem", NewStaticItem, false}};
constexpr ItemKind kOidItems[] = {{"DataItem", NewOidItem, false},
                                  {"NextDataItem", NewNextOidItem, false},
                                  {"GetDataItems", NewGetItemsItem, false},
                                  {"StaticDataItem", NewStaticItem, false}};
constexpr ItemKind kIppItems[] = {
    {"DataItem", NewIppItem, false}, {"StaticDataItem", NewStaticItem, false}, {"IPPParams", NewIppItem, true}};

struct MapKind {
  const char* element;
  const char16_t* fixedProtocol;  // null: from the "Protocol" attribute
  const ItemKind* items;
  size_t itemCount;
};

constexpr MapKind kMapKinds[] = {
    {"XMLDataMap", nullptr, kXmlItems, std::size(kXmlItems)},
    {"OIDDataMap", u"OID", kOidItems, std::size(kOidItems)},
    {"IPPDataMap", u"IPP", kIppItems, std::size(kIppItems)},
};

// Protocol texts by DataMapTypeEnum value.
constexpr std::u16string_view kProtocols[] = {u"", u"VEXA", u"WS", u"PLSXML", u"IPP", u"OID"};

}  // namespace

DataMapSpec::DataMapSpec() : cursor_(items_.end()) {
  // The creator's reference: a data map is born owned.
  AddRefImpl();
}

DataMapSpec::~DataMapSpec() {
  for (auto& entry : items_) delete entry.second;
}

DataMapSpec* DataMapSpec::CreateDataMapSpec() { return DataMapDetail::Created(new (std::nothrow) DataMapSpec()); }

DataMapSpec* DataMapSpec::CreateDataMapSpec(DataMapTypeEnum type) {
  auto spec = QxUtils::AdoptRef(CreateDataMapSpec());
  if (spec && type > DataMapTypeNone && type <= DataMapTypeOID) {
    try {
      spec->protocol_ = kProtocols[type];
    } catch (const std::bad_alloc&) {
      throw ComError(E_OUTOFMEMORY);
    }
  }
  return spec.Release();
}

DataMapSpec* DataMapSpec::CreateDataMapSpec(const xmlNode* element) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataMapSpec::CreateDataMapSpec");
  auto spec = QxUtils::AdoptRef(CreateDataMapSpec());
  if (!spec) return nullptr;
  try {
    spec->Build(element);
  } catch (const std::bad_alloc&) {
    throw ComError(E_OUTOFMEMORY);
  }
  if (qxLog_.Enabled(QxLogging::kInfo)) {
    QX_LOG(QxLogging::kInfo, "Data map \"%s\" with %d items", QxUtils::WideToUtf8(spec->protocol_).c_str(),
           spec->SizeOf());
  }
  return spec.Release();
}

void DataMapSpec::Build(const xmlNode* element) {
  const MapKind* kind = nullptr;
  for (const MapKind& candidate : kMapKinds) {
    if (Xml::LocalNameIs(element, candidate.element)) {
      kind = &candidate;
      break;
    }
  }
  if (kind == nullptr) return;

  if (kind->fixedProtocol != nullptr) {
    protocol_ = kind->fixedProtocol;
  } else if (const xmlAttr* protocol = Xml::FindAttribute(element, "Protocol")) {
    protocol_ = QxUtils::Utf8ToWide(Xml::AttributeText(protocol));
  }

  for (const xmlNode* child : Xml::Children(element)) {
    const ItemKind* itemKind = nullptr;
    for (size_t i = 0; i < kind->itemCount; ++i) {
      if (Xml::LocalNameIs(child, kind->items[i].element)) {
        itemKind = &kind->items[i];
        break;
      }
    }
    if (itemKind == nullptr) continue;
    std::unique_ptr<NvoDataItem> item(itemKind->create(child));
    // An item nobody can ask for (neither Name nor AttributeID) is dropped.
    if (item->GetName() == nullptr) continue;
    std::u16string key = itemKind->isParams ? std::u16string(kParamsKey) : std::u16string(item->GetName());
    AddDataItemSpec(std::move(key), item.release());
  }
}

void DataMapSpec::AddDataItemSpec(std::u16string name, NvoDataItem* item) {
  if (item == nullptr) return;
  std::unique_ptr<NvoDataItem> owned(item);
  std::pair<ItemTable::iterator, bool> placed;
  try {
    placed = items_.try_emplace(std::move(name), item);
  } catch (const std::bad_alloc&) {
    throw ComError(E_OUTOFMEMORY);
  }
  owned.release();
  auto [position, inserted] = placed;
  if (!inserted && position->second != item) {
    delete position->second;
    position->second = item;
  }
}

NvoDataItem* DataMapSpec::GetDataItemSpec(std::u16string_view name) const {
  auto position = items_.find(name);
  return position == items_.end() ? nullptr : position->second;
}

DataMapTypeEnum DataMapSpec::GetDataMapType() const {
  for (int32_t type = DataMapTypeVEXA; type <= DataMapTypeOID; ++type) {
    if (QxUtils::EqualsIgnoreAsciiCase(protocol_, kProtocols[type])) return static_cast<DataMapTypeEnum>(type);
  }
  return DataMapTypeNone;
}

int32_t DataMapSpec::SizeOf() const { return static_cast<int32_t>(items_.size()); }

void DataMapSpec::Begin() {
  cursor_ = items_.begin();
  returnedSinceBegin_ = false;
}

NvoDataItem* DataMapSpec::GetNextDataItemSpec() {
  if (cursor_ == items_.end()) return nullptr;
  NvoDataItem* item = cursor_->second;
  ++cursor_;
  returnedSinceBegin_ = true;
  return item;
}

void DataMapSpec::RemoveFromMap() {
  if (cursor_ == items_.end() || !returnedSinceBegin_) return;
  // The item last returned sits just before the cursor.
  auto last = std::prev(cursor_);
  delete last->second;
  items_.erase(last);
  returnedSinceBegin_ = false;
}

}  // namespace Norvane
