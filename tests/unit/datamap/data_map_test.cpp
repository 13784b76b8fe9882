// Data maps and collections: building from documents, case rules, keys, the
// walk and RemoveFromMap, reference counting, hostile documents.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "datamap_test_support.h"
#include "norvane/disposable.h"

namespace {

using namespace Norvane;
using DataMapTest::CollectionRef;
using DataMapTest::DataMapRef;
using DataMapTest::Parse;
using DataMapTest::Root;
using DataMapTest::Show;

std::vector<std::string> Walk(DataMapSpec* spec) {
  std::vector<std::string> names;
  spec->Begin();
  while (NvoDataItem* item = spec->GetNextDataItemSpec()) names.push_back(Show(item->GetName()));
  return names;
}

DataMapSpec* MapOf(std::initializer_list<const char16_t*> names) {
  DataMapSpec* spec = DataMapSpec::CreateDataMapSpec(DataMapTypeVEXA);
  for (const char16_t* name : names) {
    spec->AddDataItemSpec(name, StaticDataItemSpec::CreateStaticDataItemSpec(name, u"v", nullptr));
  }
  return spec;
}

TEST(DataMapElement, NameCaseRulesAndProtocols) {
  auto document = Parse(
      "<dataMAPS><xmldatamap Protocol=\"vexa\"><dataitem Name=\"PageCount\" URI=\"/u\" XPath=\"//p\"/>"
      "<DataItem name=\"NoName\"/><DATAITEMS Name=\"NotAnItem\"/><StaticDataItem Name=\"Model\">NX</StaticDataItem>"
      "<NextDataItem Name=\"NotInXml\"/></xmldatamap>"
      "<XMLDataMap protocol=\"WS\"/><XMLDataMap Protocol=\"Ws\"/><XMLDataMap Protocol=\"plsxml\"/>"
      "<XMLDataMap Protocol=\"SOAP\"/>"
      "<OIDDataMap Protocol=\"VEXA\"><DATAITEM Name=\"d\" OID=\"1.3\"/><nextdataitem Name=\"n\" "
      "OID=\"1.4\"/></OIDDataMap>"
      "<ippDataMap><ippparams Name=\"p\"/></ippDataMap><Unknown/>text</dataMAPS>");
  CollectionRef collection(DataMapSpecCollection::CreateDataMapSpecCollection(Root(document)));
  ASSERT_EQ(collection->GetCount(), 9);
  // The attribute is "Protocol", exactly; its value compares without case and is
  // kept as written. <Unknown/> and the text node are data maps of no type.
  const DataMapTypeEnum types[] = {DataMapTypeVEXA,   DataMapTypeNone, DataMapTypeWS,
                                   DataMapTypePLSXML, DataMapTypeNone, DataMapTypeOID,
                                   DataMapTypeIPP,    DataMapTypeNone, DataMapTypeNone};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(collection->GetDataMapSpec(i)->GetDataMapType(), types[i]) << i;
  EXPECT_EQ(collection->GetDataMapSpec(0)->GetProtocolType(), u"vexa");
  EXPECT_EQ(collection->GetDataMapSpec(1)->GetProtocolType(), u"");
  EXPECT_EQ(collection->GetDataMapSpec(4)->GetProtocolType(), u"SOAP");

  DataMapSpec* vexa = collection->GetDataMapSpec(0);
  EXPECT_EQ(Walk(vexa), (std::vector<std::string>{"Model", "PageCount"}));
  EXPECT_EQ(vexa->GetDataItemSpec(u"pagecount"), nullptr);  // keys compare exactly
  DataMapSpec* oid = collection->GetDataMapSpec(5);
  EXPECT_EQ(oid->GetProtocolType(), u"OID");  // whatever its attributes say
  EXPECT_NE(dynamic_cast<OIDDataItemSpec*>(oid->GetDataItemSpec(u"d")), nullptr);
  EXPECT_NE(static_cast<OIDDataItemSpec*>(oid->GetDataItemSpec(u"n"))->GetNextOIDDataItemSpec(), nullptr);
  EXPECT_NE(collection->GetDataMapSpec(6)->GetDataItemSpec(u"IPPParams"), nullptr);
}

TEST(DataMapElement, LastOfTheSameNameWinsAndNamelessItemsAreDropped) {
  auto document = Parse(
      "<IPPDataMap><DataItem Name=\"SerialNumber\" AttributeID=\"first\"/>"
      "<DataItem AttributeID=\"SerialNumber\" Command=\"second\"/>"
      "<IPPParams ResourceURI=\"/dropped\"/><DataItem LifeSpan=\"5\"/>"
      "<IPPParams AttributeID=\"x\" ResourceURI=\"/kept\"/>"
      "<StaticDataItem Name=\"IPPParams\">static</StaticDataItem></IPPDataMap>");
  auto spec = DataMapRef::Adopt(DataMapSpec::CreateDataMapSpec(Root(document)));
  EXPECT_EQ(spec->SizeOf(), 2);
  auto* serial = dynamic_cast<IPPDataItemSpec*>(spec->GetDataItemSpec(u"SerialNumber"));
  ASSERT_NE(serial, nullptr);
  EXPECT_EQ(Show(serial->GetCommand()), "second");
  // The static item named IPPParams came last and replaced the parameters item.
  EXPECT_NE(dynamic_cast<StaticDataItemSpec*>(spec->GetDataItemSpec(u"IPPParams")), nullptr);
}

TEST(DataMapSpecTest, CreatedFromTypesAndByHand) {
  const std::pair<int, std::u16string> types[] = {{0, u""},    {1, u"VEXA"}, {2, u"WS"}, {3, u"PLSXML"},
                                                  {4, u"IPP"}, {5, u"OID"},  {9, u""},   {-1, u""}};
  for (const auto& [type, protocol] : types) {
    auto spec = DataMapRef::Adopt(DataMapSpec::CreateDataMapSpec(static_cast<DataMapTypeEnum>(type)));
    EXPECT_EQ(spec->GetProtocolType(), protocol);
    EXPECT_EQ(spec->GetDataMapType(), (type >= 1 && type <= 5) ? type : 0);
  }

  // Upper case sorts before lower case, shorter before longer.
  auto spec = DataMapRef::Adopt(MapOf({u"toner", u"Tray", u"TrayA", u"A", u"\u00e9t\u00e9", u"zeta"}));
  EXPECT_EQ(Walk(spec.get()), (std::vector<std::string>{"A", "Tray", "TrayA", "toner", "zeta", "?t?"}));
  EXPECT_EQ(spec->GetNextDataItemSpec(), nullptr);

  spec->AddDataItemSpec(u"Tray", StaticDataItemSpec::CreateStaticDataItemSpec(u"replacement", u"v", nullptr));
  EXPECT_EQ(spec->SizeOf(), 6);
  EXPECT_EQ(Show(spec->GetDataItemSpec(u"Tray")->GetName()), "replacement");
  NvoDataItem* same = spec->GetDataItemSpec(u"Tray");
  spec->AddDataItemSpec(u"Tray", same);  // storing an item over itself keeps it alive
  EXPECT_EQ(Show(spec->GetDataItemSpec(u"Tray")->GetName()), "replacement");
  spec->AddDataItemSpec(u"null", nullptr);
  EXPECT_EQ(spec->SizeOf(), 6);
  EXPECT_EQ(spec->GetDataItemSpec(u"Tray"), same);
}

// One pass with RemoveFromMap between its steps: "n" is GetNextDataItemSpec
// (its name, or "-" past the end, in the trace), "r" is RemoveFromMap.
TEST(DataMapWalk, RemoveFromMapOnFirstMiddleAndLast) {
  const struct {
    const char* steps;
    std::string trace;
    std::vector<std::string> left;
  } rows[] = {
      {"rnrnrr", "ab", {"c"}},             // nothing returned yet; a second call has nothing to remove
      {"nnrn", "abc", {"a", "c"}},         // the middle
      {"nnnnr", "abc-", {"a", "b", "c"}},  // past the end the last cannot be removed
      {"nrnrnrn", "abc-", {"c"}},          // pruning in one pass: every item but the last
  };
  for (const auto& row : rows) {
    auto map = DataMapRef::Adopt(MapOf({u"a", u"b", u"c"}));
    map->Begin();
    std::string trace;
    for (const char* step = row.steps; *step != 0; ++step) {
      if (*step == 'r') {
        map->RemoveFromMap();
      } else {
        NvoDataItem* item = map->GetNextDataItemSpec();
        trace += item != nullptr ? Show(item->GetName()) : "-";
      }
    }
    EXPECT_EQ(trace, row.trace) << row.steps;
    EXPECT_EQ(Walk(map.get()), row.left) << row.steps;
  }
  EXPECT_EQ(DataMapRef::Adopt(MapOf({u"a"}))->GetNextDataItemSpec(), nullptr);  // before the first Begin
}

TEST(DataMapLifetime, ReferencesAndOwnership) {
  size_t before = QxUtils::LiveDisposableCount();
  DataMapSpec* spec = MapOf({u"a"});
  EXPECT_EQ(spec->GetRefCount(), 1);
  EXPECT_TRUE(QxUtils::IsRegisteredDisposable(spec));

  DataMapSpecCollection* collection = DataMapSpecCollection::CreateDataMapSpecCollection();
  collection->AddDataMapSpec(spec);  // takes over the creation reference
  collection->AddDataMapSpec(nullptr);
  EXPECT_EQ(collection->GetCount(), 1);
  EXPECT_EQ(spec->GetRefCount(), 1);
  spec->AddRef();  // a mapper keeping the data map
  DataMapSpecCollection::Dispose(collection);
  DataMapSpecCollection::Dispose(nullptr);
  EXPECT_EQ(spec->GetRefCount(), 1);
  EXPECT_EQ(Show(spec->GetDataItemSpec(u"a")->GetName()), "a");
  EXPECT_EQ(spec->Dispose(), 0u);
  EXPECT_EQ(QxUtils::LiveDisposableCount(), before);
}

TEST(DataMapHostile, MalformedAndHostileDocumentsGiveNothingOrEmptyMaps) {
  // What does parse must still build without trouble.
  auto odd = Parse(
      "<DataMaps><XMLDataMap Protocol=\"VEXA\"><DataItem Name=\"\"/><DataItem Name=\"&#x1F600;\"/>"
      "<DataItem Name=\"x\" LifeSpan=\"18446744073709551617\"><Conversion Equals=\"a\" Value=\"\"/>"
      "<Conversion><Conversion Equals=\"nested\" Value=\"no\"/></Conversion></DataItem></XMLDataMap>"
      "<OIDDataMap><GetDataItems Name=\"g\" OID=\"NNNN\" N=\"2147483647\"/></OIDDataMap></DataMaps>");
  CollectionRef collection(DataMapSpecCollection::CreateDataMapSpecCollection(Root(odd)));
  DataMapSpec* vexa = collection->GetDataMapSpec(0);
  EXPECT_EQ(vexa->SizeOf(), 3);
  EXPECT_NE(vexa->GetDataItemSpec(u""), nullptr);
  EXPECT_NE(vexa->GetDataItemSpec(u"\U0001F600"), nullptr);
  auto* x = static_cast<DataItemSpec*>(vexa->GetDataItemSpec(u"x"));
  EXPECT_EQ(x->GetLifespan(), 4294967295u);
  EXPECT_EQ(x->GetEqualsConversions().size(), 1u);
  auto* g = static_cast<OIDDataItemSpec*>(collection->GetDataMapSpec(1)->GetDataItemSpec(u"g"));
  EXPECT_EQ(g->GetOIDGetDataItemsSpec()->GetOid(), u"2147483647NNN");
  EXPECT_EQ(g->GetOIDGetDataItemsSpec()->GetOid(), u"-2147483648NNN");

  // No document, no model.
  CollectionRef empty(DataMapSpecCollection::CreateDataMapSpecCollection(nullptr));
  EXPECT_EQ(empty->GetCount(), 0);
  auto none = DataMapRef::Adopt(DataMapSpec::CreateDataMapSpec(static_cast<const xmlNode*>(nullptr)));
  EXPECT_EQ(none->SizeOf(), 0);
}

}  // namespace
