// Data-map documents come from hosts and, through the XML providers, device
// answers share the same parser: arbitrary bytes go through loading, the model,
// the walk, conversions, generated OIDs and the items' own XPath expressions.
#include <libxml/tree.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "norvane/com.h"
#include "norvane/datamap.h"
#include "platform/xml.h"

namespace {

using namespace Norvane;

void Exercise(NvoDataItem* item, const xmlNode* top, const Variant* raws, size_t rawCount) {
  for (size_t i = 0; i < rawCount; ++i) {
    Variant converted;
    *converted.Ptr() = item->ConvertValue(raws[i].Get());
  }
  if (auto* oid = dynamic_cast<OIDDataItemSpec*>(item)) {
    if (OIDGetDataItemsSpec* many = oid->GetOIDGetDataItemsSpec()) {
      many->GetOid();
      many->GetNextOid();
      OIDGetDataItemsSpec copy(*many);
      copy.GetNextOid();
    }
    if (NextOIDDataItemSpec* next = oid->GetNextOIDDataItemSpec()) (void)next->Count();
  }
  if (auto* xml = dynamic_cast<XMLDataItemSpec*>(item)) {
    XMLDataItemSpec copy(*xml);
    if (copy.GetXPath() != nullptr) {
      xmlNode* found = nullptr;
      if (Xml::SelectFirstNode(top, std::u16string_view(copy.GetXPath()), &found) == S_OK) {
        (void)Xml::TextContent(found);
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // The first byte picks the entry: bytes as given, or text the caller holds as UTF-16.
  Xml::DocumentPtr document;
  std::string_view body(reinterpret_cast<const char*>(data + 1), size - 1);
  if ((data[0] & 1) == 0) {
    Xml::LoadBytes(body, &document);
  } else {
    std::u16string text(body.size() / 2, u'\0');
    if (!text.empty()) std::memcpy(text.data(), body.data(), text.size() * 2);
    Xml::LoadText(text, &document);
  }
  if (!document) return 0;

  const xmlNode* top = reinterpret_cast<const xmlNode*>(document.get());
  xmlNode* dataMaps = nullptr;
  if (Xml::SelectFirstNode(top, "DataMaps", &dataMaps) != S_OK) dataMaps = xmlDocGetRootElement(document.get());

  uint8_t eight[8] = {};
  std::memcpy(eight, body.data(), body.size() < 8 ? body.size() : 8);
  int32_t number = 0;
  std::memcpy(&number, eight, sizeof number);
  const Variant raws[] = {Variant::FromInt32(number), Variant::FromString(u"Media,Jam,ready"),
                          Variant::FromBytes(eight, sizeof eight)};

  DataMapSpecCollection* collection = DataMapSpecCollection::CreateDataMapSpecCollection(dataMaps);
  for (int32_t i = 0; i < collection->GetCount(); ++i) {
    DataMapSpec* spec = collection->GetDataMapSpec(i);
    (void)spec->GetDataMapType();
    spec->GetDataItemSpec(u"IPPParams");
    spec->Begin();
    bool remove = false;
    while (NvoDataItem* item = spec->GetNextDataItemSpec()) {
      Exercise(item, top, raws, std::size(raws));
      if (remove) spec->RemoveFromMap();
      remove = !remove;
    }
  }
  DataMapSpecCollection::Dispose(collection);
  return 0;
}
