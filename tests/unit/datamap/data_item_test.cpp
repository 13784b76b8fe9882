// Data items: the three creation forms of each kind, attribute rules, copies and
// the generated OIDs.
#include <gtest/gtest.h>

#include <functional>
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

// The rules an element's attributes follow, one row per rule: what the item
// built from ELEMENT (or by hand) shows.
TEST(DataItemElement, AttributeRules) {
  using Read = std::function<std::string()>;
  auto element = [](const std::string& xml, auto create, auto show) -> Read {
    return [=] {
      auto document = Parse(xml);
      std::unique_ptr<std::remove_pointer_t<decltype(create(Root(document)))>> item(create(Root(document)));
      return show(*item);
    };
  };
  auto xmlItem = [](const xmlNode* n) { return XMLDataItemSpec::CreateXMLDataItem(n); };
  auto ippItem = [](const xmlNode* n) { return IPPDataItemSpec::CreateIPPDataItemSpec(n); };
  auto staticItem = [](const xmlNode* n) { return StaticDataItemSpec::CreateStaticDataItemSpec(n); };
  auto name = [](const NvoDataItem& i) { return Show(i.GetName()); };
  const struct {
    const char* rule;
    Read read;
    std::string expected;
  } rows[] = {
      {"no Name: the AttributeID names the item",
       element("<DataItem AttributeID='printer-state'/>", ippItem, name), "printer-state"},
      {"nothing names it", element("<DataItem URI='/x'/>", xmlItem, name), "<null>"},
      {"attribute names are exact", element("<DataItem name='lower'/>", xmlItem, name), "<null>"},
      {"not an element", [] { return Show(std::unique_ptr<XMLDataItemSpec>(XMLDataItemSpec::CreateXMLDataItem(nullptr))->GetUri()); },
       "<null>"},
      {"a static item is its text content, not its Value",
       element("<StaticDataItem Name='s' Value='attribute'>  text <b>and</b> more</StaticDataItem>", staticItem,
               [](const StaticDataItemSpec& i) { return Show(i.GetStaticDataItemValue()); }),
       "  text and more"},
      {"a static item has no conversions",
       element("<StaticDataItem Name='s'><Conversion Equals='a' Value='b'/></StaticDataItem>", staticItem,
               [](const StaticDataItemSpec& i) { return std::to_string(i.GetEqualsConversions().size()); }),
       "0"},
      {"by hand with a command the job URI is kept",
       [] {
         std::unique_ptr<IPPDataItemSpec> i(IPPDataItemSpec::CreateIPPDataItemSpec(
             u"JobState", u"Get-Job-Attributes", false, nullptr, u"ipp://h/job/1", 5, u"enum"));
         return Show(i->GetJobUri()) + " " + Show(i->GetResourceUri());
       },
       "ipp://h/job/1 <null>"},
      {"a walk by hand",
       [] {
         std::unique_ptr<NextOIDDataItemSpec> i(NextOIDDataItemSpec::CreateNextOidDataItemSpec(
             u"w", u"1.3", nullptr, false, nullptr, 0, nullptr, true, 3));
         return std::to_string(i->Count()) + (i->IsUntilEnd() ? " until end" : "");
       },
       "3 until end"},
      {"the empty forms hold nothing but an empty N",
       [] {
         std::unique_ptr<OIDGetDataItemsSpec> rows(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec());
         std::unique_ptr<XMLDataItemSpec> xml(XMLDataItemSpec::CreateXMLDataItem());
         return Show(rows->GetN()) + "|" + Show(rows->GetName()) + "|" + Show(rows->GetOid().c_str()) + "|" +
                Show(xml->GetXPath());
       },
       "|<null>||<null>"},
      {"the job URI needs a command",
       [] {
         std::unique_ptr<IPPDataItemSpec> i(
             IPPDataItemSpec::CreateIPPDataItemSpec(u"x", nullptr, false, nullptr, u"ipp://h/job/1", 5, nullptr));
         return Show(i->GetJobUri());
       },
       "<null>"},
      {"a lifespan keeps its low 32 bits",
       [] {
         std::unique_ptr<OIDDataItemSpec> i(OIDDataItemSpec::CreateOIDDataItemSpec(
             u"p", u"1.3", nullptr, true, nullptr, 0x1'0000'0064ull, nullptr));
         return std::to_string(i->GetLifespan());
       },
       "100"},
      {"built by hand the N counter starts at 0",
       [] {
         std::unique_ptr<OIDGetDataItemsSpec> i(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(
             u"levels", u"1.3.N", nullptr, false, nullptr, 0, nullptr, true, 4, u"7"));
         return Show(i->GetN()) + " " + Show(i->GetOid().c_str());
       },
       "7 1.3.0"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.read(), row.expected) << row.rule;
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
