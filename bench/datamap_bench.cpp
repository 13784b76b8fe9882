// The data-map model on top of libxml2: building the collection from a parsed
// 2,000-item document next to the parse itself, item lookups, and ConvertValue
// on an item with 20 conversions.
//
//   build-*/bench/datamap_bench
// Compare BM_BuildCollection with BM_Libxml2Parse: the model should cost less
// than the parse it sits on.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <string>

#include "norvane/com.h"
#include "norvane/datamap.h"
#include "platform/xml.h"

namespace {

using namespace Norvane;

// 800 XML items, 800 SNMP items of the three kinds, 400 IPP items; every fourth
// item carries conversions, as status-like items do in real data maps.
std::string GenerateDocument() {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<DataMaps>\n  <XMLDataMap Protocol=\"VEXA\">\n";
  auto conversions = [](int i) {
    if (i % 4 != 0) return std::string("/>\n");
    return std::string(
        ">\n      <Conversion Equals=\"ready\" Value=\"Ready\"/>\n"
        "      <Conversion Contains=\"jam\" Value=\"Jam\"/>\n"
        "      <Conversion Equals=\"default\" Value=\"Other\"/>\n    </DataItem>\n");
  };
  for (int i = 0; i < 800; ++i) {
    std::string n = std::to_string(i);
    xml += "    <DataItem Name=\"Value" + n + "\" URI=\"/DevMgmt/ProductStatusDyn" + std::to_string(i % 7) +
           ".xml\" XPath=\"//psdyn:Status/psdyn:Item" + n + "/dd:Value\" LifeSpan=\"" + std::to_string(i % 600) +
           "\" Transient=\"" + (i % 9 == 0 ? "true" : "false") + "\"" + conversions(i);
  }
  xml += "  </XMLDataMap>\n  <OIDDataMap>\n";
  for (int i = 0; i < 800; ++i) {
    std::string n = std::to_string(i);
    const char* kind = i % 3 == 0 ? "DataItem" : (i % 3 == 1 ? "NextDataItem" : "GetDataItems");
    xml += std::string("    <") + kind + " Name=\"Oid" + n + "\" OID=\"1.3.6.1.2.1.43.11.1.1." + n +
           ".1.N\" GroupID=\"g" + std::to_string(i % 5) + "\" N=\"1\" Count=\"4\" LifeSpan=\"300\"/>\n";
  }
  xml += "  </OIDDataMap>\n  <IPPDataMap>\n    <IPPParams Name=\"p\" ResourceURI=\"/ipp/print\"/>\n";
  for (int i = 0; i < 399; ++i) {
    xml += "    <DataItem AttributeID=\"printer-attribute-" + std::to_string(i) + "\" LifeSpan=\"30s\"/>\n";
  }
  xml += "  </IPPDataMap>\n</DataMaps>\n";
  return xml;
}

const std::string& Document() {
  static const std::string document = GenerateDocument();
  return document;
}

void BM_Libxml2Parse(benchmark::State& state) {
  const std::string& bytes = Document();
  for (auto _ : state) {
    xmlDoc* document = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                     XML_PARSE_NOBLANKS | XML_PARSE_NONET);
    benchmark::DoNotOptimize(document);
    xmlFreeDoc(document);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Libxml2Parse)->Unit(benchmark::kMicrosecond);

// The library's locked-down load of the same bytes (own parser context, silent
// errors, entity refusal).
void BM_XmlLoadBytes(benchmark::State& state) {
  const std::string& bytes = Document();
  for (auto _ : state) {
    Xml::DocumentPtr document;
    Xml::LoadBytes(bytes, &document);
    benchmark::DoNotOptimize(document.get());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_XmlLoadBytes)->Unit(benchmark::kMicrosecond);

void BM_BuildCollection(benchmark::State& state) {
  Xml::DocumentPtr document;
  if (Xml::LoadBytes(Document(), &document) != S_OK) {
    state.SkipWithError("document did not parse");
    return;
  }
  const xmlNode* dataMaps = xmlDocGetRootElement(document.get());
  int32_t items = 0;
  for (auto _ : state) {
    DataMapSpecCollection* collection = DataMapSpecCollection::CreateDataMapSpecCollection(dataMaps);
    items = collection->GetDataMapSpec(0)->SizeOf() + collection->GetDataMapSpec(1)->SizeOf() +
            collection->GetDataMapSpec(2)->SizeOf();
    DataMapSpecCollection::Dispose(collection);
  }
  state.counters["items"] = items;
}
BENCHMARK(BM_BuildCollection)->Unit(benchmark::kMicrosecond);

void BM_GetDataItemSpec(benchmark::State& state) {
  Xml::DocumentPtr document;
  Xml::LoadBytes(Document(), &document);
  DataMapSpecCollection* collection =
      DataMapSpecCollection::CreateDataMapSpecCollection(xmlDocGetRootElement(document.get()));
  DataMapSpec* vexa = collection->GetDataMapSpec(0);
  std::u16string keys[] = {u"Value0", u"Value417", u"Value799", u"Missing"};
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(vexa->GetDataItemSpec(keys[i++ & 3]));
  }
  DataMapSpecCollection::Dispose(collection);
}
BENCHMARK(BM_GetDataItemSpec);

std::unique_ptr<NvoDataItem> TwentyConversions() {
  std::unique_ptr<NvoDataItem> item(
      XMLDataItemSpec::CreateXMLDataItem(u"Status", u"/s", u"//s", nullptr, false, 0, nullptr));
  const char16_t* states[] = {u"1", u"2", u"3", u"4", u"5", u"idle", u"processing", u"stopped", u"warming", u"sleep"};
  const char16_t* words[] = {u"jam",   u"toner,low", u"door",     u"media,empty", u"cover,open",
                             u"paper", u"fuser",     u"drum,end", u"offline",     u"default"};
  for (const char16_t* s : states) item->AddConversion(s, nullptr, u"State");
  for (const char16_t* w : words) item->AddConversion(nullptr, w, u"Alert");
  return item;
}

void ConvertLoop(benchmark::State& state, const Variant& raw) {
  std::unique_ptr<NvoDataItem> item = TwentyConversions();
  for (auto _ : state) {
    VARIANT converted = item->ConvertValue(raw.Get());
    VariantClear(&converted);
  }
}

void BM_ConvertValue_EqualsInteger(benchmark::State& state) { ConvertLoop(state, Variant::FromInt32(4)); }
BENCHMARK(BM_ConvertValue_EqualsInteger);

void BM_ConvertValue_ContainsTokens(benchmark::State& state) {
  ConvertLoop(state, Variant::FromString(u"input-tray-missing,Marker-Supply-Low,offline"));
}
BENCHMARK(BM_ConvertValue_ContainsTokens);

void BM_ConvertValue_DefaultFallback(benchmark::State& state) {
  ConvertLoop(state, Variant::FromString(u"some unmatched status text from the device"));
}
BENCHMARK(BM_ConvertValue_DefaultFallback);

void BM_ConvertValue_NoConversions(benchmark::State& state) {
  std::unique_ptr<NvoDataItem> item(StaticDataItemSpec::CreateStaticDataItemSpec(u"s", u"v", nullptr));
  Variant raw = Variant::FromString(u"unchanged");
  for (auto _ : state) {
    VARIANT converted = item->ConvertValue(raw.Get());
    VariantClear(&converted);
  }
}
BENCHMARK(BM_ConvertValue_NoConversions);

}  // namespace

BENCHMARK_MAIN();
