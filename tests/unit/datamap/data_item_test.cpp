// Data items: the three creation forms of each kind, attribute rules, copies and
// the generated OIDs.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "datamap/attribute_values.h"
#include "datamap_test_support.h"

namespace {

using namespace Norvane;
using DataMapTest::Parse;
using DataMapTest::Root;
using DataMapTest::Show;

template <class T>
using Owned = std::unique_ptr<T>;

TEST(DataItemElement, CommonAttributesAndTheNameFallback) {
  auto document = Parse(
      "<m><DataItem Name=\"SerialNumber\" AttributeID=\"serial\" Prefix=\"dev\" Type=\"string\""
      " URI=\"/DevMgmt/ProductConfigDyn.xml\" XPath=\"//dd:SerialNumber\"/>"
      "<DataItem AttributeID=\"printer-state\"/>"
      "<DataItem URI=\"/x\"/>"
      "<DataItem name=\"lower-case attribute names are not Name\"/></m>");
  xmlNode* first = Root(document)->children;
  Owned<XMLDataItemSpec> full(XMLDataItemSpec::CreateXMLDataItem(first));
  EXPECT_EQ(Show(full->GetName()), "SerialNumber");
  EXPECT_EQ(Show(full->GetAttributeID()), "serial");
  EXPECT_EQ(Show(full->GetPrefix()), "dev");
  EXPECT_EQ(Show(full->GetType()), "string");
  EXPECT_EQ(Show(full->GetUri()), "/DevMgmt/ProductConfigDyn.xml");
  EXPECT_EQ(Show(full->GetXPath()), "//dd:SerialNumber");

  Owned<IPPDataItemSpec> byId(IPPDataItemSpec::CreateIPPDataItemSpec(first->next));
  EXPECT_EQ(Show(byId->GetName()), "printer-state");
  EXPECT_EQ(Show(byId->GetAttributeID()), "printer-state");
  EXPECT_NE(byId->GetName(), byId->GetAttributeID());  // two copies, not one shared text
  EXPECT_EQ(Show(byId->GetPrefix()), "<null>");

  Owned<XMLDataItemSpec> anonymous(XMLDataItemSpec::CreateXMLDataItem(first->next->next));
  EXPECT_EQ(anonymous->GetName(), nullptr);
  Owned<XMLDataItemSpec> caseDiffers(XMLDataItemSpec::CreateXMLDataItem(first->next->next->next));
  EXPECT_EQ(caseDiffers->GetName(), nullptr);

  // Not an element: nothing is read.
  Owned<XMLDataItemSpec> none(XMLDataItemSpec::CreateXMLDataItem(nullptr));
  EXPECT_EQ(none->GetName(), nullptr);
  EXPECT_EQ(none->GetUri(), nullptr);
}

TEST(DataItemElement, LifespanTransientAndCounts) {
  struct Case {
    const char* attributes;
    uint32_t lifespan;
    bool transient;
    int32_t count;
  };
  const Case cases[] = {
      {"LifeSpan=\"300\" Transient=\"true\" Count=\"12\"", 300, true, 12},
      {"LifeSpan=\"30s\" Transient=\"TRUE\" Count=\"-3\"", 30, true, -3},
      {"LifeSpan=\"-1\" Transient=\"True\" Count=\"x\"", 4294967295u, true, 0},
      {"Transient=\"1\"", 0, false, 0},
      {"LifeSpan=\" 7\" Transient=\"yes\" Count=\"99999999999\"", 7, false, INT32_MAX},
      {"LifeSpan=\"99999999999\" Transient=\"true \" Count=\"-99999999999\"", 4294967295u, false, INT32_MIN},
      {"LifeSpan=\"s30\" Transient=\"\"", 0, false, 0},
  };
  for (const Case& c : cases) {
    auto document = Parse(std::string("<NextDataItem Name=\"n\" ") + c.attributes + "/>");
    Owned<NextOIDDataItemSpec> item(NextOIDDataItemSpec::CreateNextOidDataItemSpec(Root(document)));
    EXPECT_EQ(item->GetLifespan(), c.lifespan) << c.attributes;
    EXPECT_EQ(item->IsTransient(), c.transient) << c.attributes;
    EXPECT_EQ(item->Count(), c.count) << c.attributes;
  }
  EXPECT_EQ(DataMapDetail::ParseUnsigned("-4294967295"), 1u);
  EXPECT_EQ(DataMapDetail::ParseUnsigned("+12abc"), 12u);
  EXPECT_EQ(DataMapDetail::ParseSigned("-2147483648"), INT32_MIN);
  EXPECT_EQ(DataMapDetail::ParseSigned("2147483648"), INT32_MAX);
  EXPECT_EQ(DataMapDetail::ParseSigned("- 5"), 0);
}

TEST(DataItemElement, EachKindReadsItsOwnAttributes) {
  auto document = Parse(
      "<m><DataItem Name=\"d\" OID=\"1.3.6.1.2.1.25.3.2.1.5.1\" GroupID=\"status\"/>"
      "<GetDataItems Name=\"g\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1.N\" N=\"5\" Count=\"3\" UntilEnd=\"true\"/>"
      "<IPPParams Name=\"p\" Command=\"Get-Job-Attributes\" JobURI=\"ipp://h/ipp/print/7\""
      " ResourceURI=\"/ipp/print\" Charset=\"utf-8\" Lang=\"en-us\"/>"
      "<StaticDataItem Name=\"s\" Value=\"attribute\" LifeSpan=\"9\" Transient=\"true\">"
      "<Conversion Equals=\"a\" Value=\"b\"/></StaticDataItem>"
      "<StaticDataItem Name=\"t\">  text <b>and</b> more</StaticDataItem></m>");
  xmlNode* node = Root(document)->children;
  Owned<OIDDataItemSpec> oid(OIDDataItemSpec::CreateOIDDataItemSpec(node));
  EXPECT_EQ(Show(oid->GetOid()), "1.3.6.1.2.1.25.3.2.1.5.1");
  EXPECT_EQ(Show(oid->GetGroup()), "status");

  node = node->next;
  Owned<OIDGetDataItemsSpec> many(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(node));
  EXPECT_EQ(Show(many->GetN()), "5");
  EXPECT_EQ(many->GetNCounter(), 5);
  EXPECT_EQ(many->Count(), 3);
  EXPECT_TRUE(many->IsUntilEnd());
  EXPECT_EQ(many->GetOIDGetDataItemsSpec(), many.get());
  OIDDataItemSpec* asBase = many.get();
  EXPECT_EQ(Show(asBase->GetOid()), "1.3.6.1.2.1.43.11.1.1.6.1.N");  // the template stays readable

  node = node->next;
  Owned<IPPDataItemSpec> params(IPPDataItemSpec::CreateIPPDataItemSpec(node));
  EXPECT_EQ(Show(params->GetCommand()), "Get-Job-Attributes");
  EXPECT_EQ(Show(params->GetJobUri()), "ipp://h/ipp/print/7");
  EXPECT_EQ(Show(params->GetResourceUri()), "/ipp/print");
  EXPECT_EQ(Show(params->GetCharSet()), "utf-8");
  EXPECT_EQ(Show(params->GetLang()), "en-us");

  // A static item is its text content, whatever else the element says.
  node = node->next;
  Owned<StaticDataItemSpec> constant(StaticDataItemSpec::CreateStaticDataItemSpec(node));
  EXPECT_EQ(Show(constant->GetStaticDataItemValue()), "");
  EXPECT_TRUE(constant->GetEqualsConversions().empty());
  node = node->next;
  Owned<StaticDataItemSpec> text(StaticDataItemSpec::CreateStaticDataItemSpec(node));
  EXPECT_EQ(Show(text->GetStaticDataItemValue()), "  text and more");
}

TEST(DataItemValues, ValueFormsCopyTheirArguments) {
  std::u16string name = u"PageCount";
  Owned<OIDDataItemSpec> oid(OIDDataItemSpec::CreateOIDDataItemSpec(
      name.c_str(), u"1.3.6.1.2.1.43.10.2.1.4.1.1", nullptr, true, u"p", 0x1'0000'0064ull, nullptr));
  name[0] = u'X';
  EXPECT_EQ(Show(oid->GetName()), "PageCount");
  EXPECT_EQ(Show(oid->GetAttributeID()), "PageCount");
  EXPECT_EQ(oid->GetLifespan(), 100u);  // the low 32 bits
  EXPECT_TRUE(oid->IsTransient());

  Owned<OIDGetDataItemsSpec> many(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(
      u"levels", u"1.3.N", nullptr, false, nullptr, 0, nullptr, true, 4, u"7"));
  EXPECT_EQ(Show(many->GetN()), "7");
  EXPECT_EQ(many->GetOid(), u"1.3.0");  // the counter starts at 0 in the value form

  Owned<IPPDataItemSpec> withCommand(IPPDataItemSpec::CreateIPPDataItemSpec(
      u"JobState", u"Get-Job-Attributes", false, nullptr, u"ipp://h/job/1", 5, u"enum"));
  EXPECT_EQ(Show(withCommand->GetJobUri()), "ipp://h/job/1");
  EXPECT_EQ(withCommand->GetResourceUri(), nullptr);
  Owned<IPPDataItemSpec> noCommand(
      IPPDataItemSpec::CreateIPPDataItemSpec(u"x", nullptr, false, nullptr, u"ipp://h/job/1", 5, nullptr));
  EXPECT_EQ(noCommand->GetJobUri(), nullptr);
  EXPECT_EQ(noCommand->GetCommand(), nullptr);

  Owned<StaticDataItemSpec> constant(StaticDataItemSpec::CreateStaticDataItemSpec(u"Model", u"NX", nullptr));
  EXPECT_EQ(Show(constant->GetStaticDataItemValue()), "NX");

  // The empty forms: everything null or zero, except an empty N text.
  Owned<OIDGetDataItemsSpec> empty(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec());
  EXPECT_EQ(Show(empty->GetN()), "");
  EXPECT_EQ(empty->GetName(), nullptr);
  EXPECT_EQ(empty->GetOid(), u"");
  EXPECT_EQ(Owned<XMLDataItemSpec>(XMLDataItemSpec::CreateXMLDataItem())->GetXPath(), nullptr);
}

TEST(DataItemCopies, CopiesOwnTheirTextsAndTables) {
  auto document = Parse(
      "<DataItem Name=\"Status\" URI=\"/s.xml\" XPath=\"//s\" LifeSpan=\"20\">"
      "<Conversion Equals=\"READY\" Value=\"Ready\"/><Conversion Contains=\"Jam\" Value=\"Jam\"/></DataItem>");
  auto original = std::make_unique<XMLDataItemSpec>(*Owned<XMLDataItemSpec>(
      XMLDataItemSpec::CreateXMLDataItem(Root(document))));
  XMLDataItemSpec copy(*original);
  const char16_t* originalName = original->GetName();
  original.reset();
  EXPECT_NE(copy.GetName(), originalName);
  EXPECT_EQ(Show(copy.GetName()), "Status");
  EXPECT_EQ(Show(copy.GetXPath()), "//s");
  EXPECT_EQ(copy.GetLifespan(), 20u);
  EXPECT_EQ(copy.GetEqualsConversions().at(u"ready"), u"Ready");
  EXPECT_EQ(copy.GetContainsConversions().at(u"jam"), u"Jam");

  Owned<XMLDataItemSpec> other(XMLDataItemSpec::CreateXMLDataItem(u"Other", u"/o", u"//o", nullptr, false, 1, nullptr));
  *other = copy;
  copy.Initialize();  // resets what XMLDataItemSpec adds, and only that
  EXPECT_EQ(copy.GetUri(), nullptr);
  EXPECT_EQ(Show(copy.GetName()), "Status");
  EXPECT_EQ(Show(other->GetUri()), "/s.xml");
  EXPECT_EQ(other->GetEqualsConversions().size(), 1u);

  OIDGetDataItemsSpec walker(*Owned<OIDGetDataItemsSpec>(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(
      u"w", u"1.N", nullptr, false, nullptr, 0, nullptr, false, 0, u"0")));
  walker.GetNextOid();
  OIDGetDataItemsSpec snapshot(walker);
  EXPECT_EQ(walker.GetNextOid(), u"1.1");
  EXPECT_EQ(snapshot.GetNextOid(), u"1.1");  // the counter is copied too, then independent
}

TEST(GeneratedOids, SequenceFromTheNAttribute) {
  auto document = Parse(
      "<m><GetDataItems Name=\"a\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1.N\" N=\"1\"/>"
      "<GetDataItems Name=\"b\" OID=\"1.3.6.N.1\"/>"
      "<GetDataItems Name=\"c\" OID=\"1.N.2.N\" N=\"-2\"/>"
      "<GetDataItems Name=\"d\" OID=\"1.3.6\" N=\"4\"/>"
      "<GetDataItems Name=\"e\" N=\"1\"/></m>");
  xmlNode* node = Root(document)->children;
  Owned<OIDGetDataItemsSpec> a(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(node));
  EXPECT_EQ(a->GetOid(), u"1.3.6.1.2.1.43.11.1.1.6.1.1");
  EXPECT_EQ(a->GetOid(), u"1.3.6.1.2.1.43.11.1.1.6.1.2");
  EXPECT_EQ(a->GetNextOid(), u"1.3.6.1.2.1.43.11.1.1.6.1.3");
  EXPECT_EQ(a->GetNCounter(), 4);

  Owned<OIDGetDataItemsSpec> b(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(node->next));
  EXPECT_EQ(b->GetN(), nullptr);
  EXPECT_EQ(b->GetOid(), u"");  // no N attribute: nothing generated, nothing advanced
  EXPECT_EQ(b->GetNextOid(), u"1.3.6.0.1");
  EXPECT_EQ(b->GetNextOid(), u"1.3.6.1.1");

  Owned<OIDGetDataItemsSpec> c(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(node->next->next));
  EXPECT_EQ(c->GetOid(), u"1.-2.2.N");  // only the first N
  EXPECT_EQ(c->GetOid(), u"1.-1.2.N");

  Owned<OIDGetDataItemsSpec> d(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(node->next->next->next));
  EXPECT_EQ(d->GetNextOid(), u"1.3.6");
  EXPECT_EQ(d->GetNCounter(), 5);

  Owned<OIDGetDataItemsSpec> e(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(node->next->next->next->next));
  EXPECT_EQ(e->GetNextOid(), u"");
}

}  // namespace
