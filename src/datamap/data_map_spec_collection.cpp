// The data maps of one document, in document order.
#include <libxml/tree.h>

#include <new>

#include "datamap/item_factory.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/log.h"
#include "support/ref.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

DataMapSpecCollection::DataMapSpecCollection() = default;

DataMapSpecCollection::~DataMapSpecCollection() {
  for (DataMapSpec* spec : maps_) spec->Dispose();
}

DataMapSpecCollection* DataMapSpecCollection::CreateDataMapSpecCollection() {
  return DataMapDetail::Created(new (std::nothrow) DataMapSpecCollection());
}

DataMapSpecCollection* DataMapSpecCollection::CreateDataMapSpecCollection(const xmlNode* dataMaps) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataMapSpecCollection::CreateDataMapSpecCollection");
  std::unique_ptr<DataMapSpecCollection> collection(CreateDataMapSpecCollection());
  // Every child node is a data map, whatever it is: a comment or an unknown
  // element gives an empty one, which the engine skips by its type.
  for (const xmlNode* child : Xml::Children(dataMaps)) {
    collection->AddDataMapSpec(DataMapSpec::CreateDataMapSpec(child));
  }
  QX_LOG(QxLogging::kInfo, "%d data maps", collection->GetCount());
  return collection.release();
}

void DataMapSpecCollection::AddDataMapSpec(DataMapSpec* spec) {
  if (spec == nullptr) return;
  auto held = QxUtils::AdoptRef(spec);
  try {
    maps_.push_back(spec);
  } catch (const std::bad_alloc&) {
    throw ComError(E_OUTOFMEMORY);
  }
  (void)held.Release();
}

int32_t DataMapSpecCollection::GetCount() const { return static_cast<int32_t>(maps_.size()); }

DataMapSpec* DataMapSpecCollection::GetDataMapSpec(int32_t index) const {
  if (index < 0 || static_cast<size_t>(index) >= maps_.size()) return nullptr;
  return maps_[static_cast<size_t>(index)];
}

void DataMapSpecCollection::Dispose() { delete this; }

void DataMapSpecCollection::Dispose(DataMapSpecCollection* collection) {
  if (collection != nullptr) collection->Dispose();
}

}  // namespace Norvane
