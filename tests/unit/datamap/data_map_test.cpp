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

TEST(DataMapCollection, TheFixtureDocument) {
  Xml::DocumentPtr document;
  ASSERT_EQ(Xml::LoadFile(DataMapTest::FixturePath("device_datamaps.xml").c_str(), &document), S_OK);
  xmlNode* dataMaps = nullptr;
  ASSERT_EQ(Xml::SelectFirstNode(reinterpret_cast<xmlNode*>(document.get()), "DataMaps", &dataMaps), S_OK);
  CollectionRef collection(DataMapSpecCollection::CreateDataMapSpecCollection(dataMaps));
  // Three data maps and the comment between the first two.
  ASSERT_EQ(collection->GetCount(), 4);
  EXPECT_EQ(collection->GetDataMapSpec(0)->GetDataMapType(), DataMapTypeVEXA);
  EXPECT_EQ(collection->GetDataMapSpec(1)->GetDataMapType(), DataMapTypeNone);
  EXPECT_EQ(collection->GetDataMapSpec(1)->SizeOf(), 0);
  EXPECT_EQ(collection->GetDataMapSpec(1)->GetProtocolType(), u"");
  EXPECT_EQ(collection->GetDataMapSpec(2)->GetDataMapType(), DataMapTypeOID);
  EXPECT_EQ(collection->GetDataMapSpec(3)->GetDataMapType(), DataMapTypeIPP);
  EXPECT_EQ(collection->GetDataMapSpec(4), nullptr);
  EXPECT_EQ(collection->GetDataMapSpec(-1), nullptr);

  DataMapSpec* vexa = collection->GetDataMapSpec(0);
  EXPECT_EQ(Walk(vexa), (std::vector<std::string>{"ModelFamily", "PrinterStatus", "SerialNumber"}));
  auto* status = dynamic_cast<XMLDataItemSpec*>(vexa->GetDataItemSpec(u"PrinterStatus"));
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(status->GetLifespan(), 50u);
  EXPECT_EQ(status->GetEqualsConversions().size(), 3u);
  EXPECT_NE(dynamic_cast<StaticDataItemSpec*>(vexa->GetDataItemSpec(u"ModelFamily")), nullptr);

  DataMapSpec* oid = collection->GetDataMapSpec(2);
  EXPECT_EQ(oid->SizeOf(), 5);
  auto* walk = dynamic_cast<OIDDataItemSpec*>(oid->GetDataItemSpec(u"SupplyDescriptions"));
  ASSERT_NE(walk, nullptr);
  ASSERT_NE(walk->GetNextOIDDataItemSpec(), nullptr);
  EXPECT_EQ(walk->GetNextOIDDataItemSpec()->Count(), 4);
  auto* levels = dynamic_cast<OIDDataItemSpec*>(oid->GetDataItemSpec(u"SupplyLevels"));
  ASSERT_NE(levels, nullptr);
  ASSERT_NE(levels->GetOIDGetDataItemsSpec(), nullptr);
  EXPECT_EQ(levels->GetOIDGetDataItemsSpec()->GetOid(), u"1.3.6.1.2.1.43.11.1.1.9.1.1");

  DataMapSpec* ipp = collection->GetDataMapSpec(3);
  EXPECT_EQ(Walk(ipp), (std::vector<std::string>{"params", "JobState", "MarkerLevels", "printer-state"}));
  auto* params = dynamic_cast<IPPDataItemSpec*>(ipp->GetDataItemSpec(u"IPPParams"));
  ASSERT_NE(params, nullptr);
  EXPECT_EQ(Show(params->GetResourceUri()), "/ipp/print");
  EXPECT_EQ(ipp->GetDataItemSpec(u"params"), nullptr);
  EXPECT_EQ(static_cast<DataItemSpec*>(ipp->GetDataItemSpec(u"printer-state"))->GetLifespan(), 30u);
  EXPECT_EQ(static_cast<DataItemSpec*>(ipp->GetDataItemSpec(u"MarkerLevels"))->GetLifespan(), 4294967295u);
  EXPECT_TRUE(static_cast<DataItemSpec*>(ipp->GetDataItemSpec(u"JobState"))->IsTransient());
}

TEST(DataMapElement, NameCaseRulesAndProtocols) {
  auto document = Parse(
      "<dataMAPS><xmldatamap Protocol=\"vexa\"><dataitem Name=\"PageCount\" URI=\"/u\" XPath=\"//p\"/>"
      "<DataItem name=\"NoName\"/><DATAITEMS Name=\"NotAnItem\"/><StaticDataItem Name=\"Model\">NX</StaticDataItem>"
      "<NextDataItem Name=\"NotInXml\"/></xmldatamap>"
      "<XMLDataMap protocol=\"WS\"/><XMLDataMap Protocol=\"Ws\"/><XMLDataMap Protocol=\"plsxml\"/>"
      "<XMLDataMap Protocol=\"SOAP\"/>"
      "<OIDDataMap Protocol=\"VEXA\"><DATAITEM Name=\"d\" OID=\"1.3\"/><nextdataitem Name=\"n\" OID=\"1.4\"/></OIDDataMap>"
      "<ippDataMap><ippparams Name=\"p\"/></ippDataMap><Unknown/>text</dataMAPS>");
  CollectionRef collection(DataMapSpecCollection::CreateDataMapSpecCollection(Root(document)));
  ASSERT_EQ(collection->GetCount(), 9);

  DataMapSpec* vexa = collection->GetDataMapSpec(0);
  EXPECT_EQ(vexa->GetProtocolType(), u"vexa");  // kept as written, compared without case
  EXPECT_EQ(vexa->GetDataMapType(), DataMapTypeVEXA);
  EXPECT_EQ(Walk(vexa), (std::vector<std::string>{"Model", "PageCount"}));
  EXPECT_NE(vexa->GetDataItemSpec(u"PageCount"), nullptr);
  EXPECT_EQ(vexa->GetDataItemSpec(u"pagecount"), nullptr);  // keys compare exactly

  // The attribute is "Protocol", exactly.
  EXPECT_EQ(collection->GetDataMapSpec(1)->GetProtocolType(), u"");
  EXPECT_EQ(collection->GetDataMapSpec(1)->GetDataMapType(), DataMapTypeNone);
  EXPECT_EQ(collection->GetDataMapSpec(2)->GetDataMapType(), DataMapTypeWS);
  EXPECT_EQ(collection->GetDataMapSpec(3)->GetDataMapType(), DataMapTypePLSXML);
  EXPECT_EQ(collection->GetDataMapSpec(4)->GetDataMapType(), DataMapTypeNone);
  EXPECT_EQ(collection->GetDataMapSpec(4)->GetProtocolType(), u"SOAP");

  DataMapSpec* oid = collection->GetDataMapSpec(5);
  EXPECT_EQ(oid->GetProtocolType(), u"OID");  // whatever its attributes say
  EXPECT_NE(dynamic_cast<OIDDataItemSpec*>(oid->GetDataItemSpec(u"d")), nullptr);
  EXPECT_NE(dynamic_cast<NextOIDDataItemSpec*>(oid->GetDataItemSpec(u"n")), nullptr);

  EXPECT_EQ(collection->GetDataMapSpec(6)->GetDataMapType(), DataMapTypeIPP);
  EXPECT_NE(collection->GetDataMapSpec(6)->GetDataItemSpec(u"IPPParams"), nullptr);
  EXPECT_EQ(collection->GetDataMapSpec(7)->GetDataMapType(), DataMapTypeNone);  // <Unknown/>
  EXPECT_EQ(collection->GetDataMapSpec(8)->GetDataMapType(), DataMapTypeNone);  // the text node
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
  const std::pair<int, std::u16string> types[] = {{0, u""},      {1, u"VEXA"}, {2, u"WS"}, {3, u"PLSXML"},
                                                  {4, u"IPP"},   {5, u"OID"},  {9, u""},  {-1, u""}};
  for (const auto& [type, protocol] : types) {
    auto spec = DataMapRef::Adopt(DataMapSpec::CreateDataMapSpec(static_cast<DataMapTypeEnum>(type)));
    EXPECT_EQ(spec->GetProtocolType(), protocol);
    EXPECT_EQ(spec->GetDataMapType(), (type >= 1 && type <= 5) ? type : 0);
    EXPECT_EQ(spec->SizeOf(), 0);
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
  std::u16string key = u"Tray";
  EXPECT_EQ(spec->GetDataItemSpec(key), same);
}

TEST(DataMapWalk, RemoveFromMapOnFirstMiddleAndLast) {
  auto first = DataMapRef::Adopt(MapOf({u"a", u"b", u"c"}));
  first->Begin();
  first->RemoveFromMap();  // nothing returned yet
  EXPECT_EQ(first->SizeOf(), 3);
  EXPECT_EQ(Show(first->GetNextDataItemSpec()->GetName()), "a");
  first->RemoveFromMap();
  EXPECT_EQ(first->SizeOf(), 2);
  EXPECT_EQ(Show(first->GetNextDataItemSpec()->GetName()), "b");
  first->RemoveFromMap();
  first->RemoveFromMap();  // the second call has nothing left to remove
  EXPECT_EQ(first->SizeOf(), 1);
  EXPECT_EQ(Walk(first.get()), (std::vector<std::string>{"c"}));

  auto middle = DataMapRef::Adopt(MapOf({u"a", u"b", u"c"}));
  middle->Begin();
  middle->GetNextDataItemSpec();
  middle->GetNextDataItemSpec();
  middle->RemoveFromMap();
  EXPECT_EQ(Show(middle->GetNextDataItemSpec()->GetName()), "c");
  EXPECT_EQ(Walk(middle.get()), (std::vector<std::string>{"a", "c"}));

  // The cursor is past the end after the last item: it cannot be removed.
  auto last = DataMapRef::Adopt(MapOf({u"a", u"b", u"c"}));
  last->Begin();
  while (last->GetNextDataItemSpec() != nullptr) {
  }
  last->RemoveFromMap();
  EXPECT_EQ(last->SizeOf(), 3);

  // Pruning during one pass: every item but the last can go.
  auto prune = DataMapRef::Adopt(MapOf({u"a", u"b", u"c", u"d"}));
  prune->Begin();
  while (prune->GetNextDataItemSpec() != nullptr) prune->RemoveFromMap();
  EXPECT_EQ(Walk(prune.get()), (std::vector<std::string>{"d"}));

  auto fresh = DataMapRef::Adopt(MapOf({u"a"}));
  EXPECT_EQ(fresh->GetNextDataItemSpec(), nullptr);  // before the first Begin
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
