// Data items: the three creation forms of each kind, attribute rules, copies and
// the generated OIDs.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "datamap_test_support.h"

namespace {

using namespace Norvane;
using DataMapTest::Parse;
using DataMapTest::Root;
using DataMapTest::Show;

template <class T>
using Owned = std::unique_ptr<T>;

// The rules an element's attributes follow, and what the forms built by hand keep.
TEST(DataItemElement, AttributeRules) {
  std::vector<Xml::DocumentPtr> documents;
  auto element = [&documents](const char* xml) { return Root(documents.emplace_back(Parse(xml))); };
  auto xmlName = [&element](const char* xml) {
    return Show(Owned<XMLDataItemSpec>(XMLDataItemSpec::CreateXMLDataItem(element(xml)))->GetName());
  };
  // No Name: the AttributeID names the item; nothing else does, and attribute names are exact.
  EXPECT_EQ(Show(Owned<IPPDataItemSpec>(
                     IPPDataItemSpec::CreateIPPDataItemSpec(element("<DataItem AttributeID='printer-state'/>")))
                     ->GetName()),
            "printer-state");
  EXPECT_EQ(xmlName("<DataItem URI='/x'/>"), "<null>");
  EXPECT_EQ(xmlName("<DataItem name='x'/>"), "<null>");
  // A static item is its text content, not its Value, and has no conversions.
  Owned<StaticDataItemSpec> fixed(StaticDataItemSpec::CreateStaticDataItemSpec(element(
      "<StaticDataItem Name='s' Value='v'>  text <b>and</b> more<Conversion Equals='a' Value='b'/></StaticDataItem>")));
  EXPECT_EQ(Show(fixed->GetStaticDataItemValue()), "  text and more");
  EXPECT_TRUE(fixed->GetEqualsConversions().empty());

  // By hand: the job URI is kept only with a command.
  Owned<IPPDataItemSpec> job(IPPDataItemSpec::CreateIPPDataItemSpec(u"JobState", u"Get-Job-Attributes", false, nullptr,
                                                                    u"ipp://h/job/1", 5, u"enum"));
  EXPECT_EQ(Show(job->GetJobUri()) + " " + Show(job->GetResourceUri()), "ipp://h/job/1 <null>");
  EXPECT_EQ(Show(Owned<IPPDataItemSpec>(IPPDataItemSpec::CreateIPPDataItemSpec(u"x", nullptr, false, nullptr,
                                                                               u"ipp://h/job/1", 5, nullptr))
                     ->GetJobUri()),
            "<null>");
  // A lifespan keeps its low 32 bits; the N counter of a generated OID starts at 0.
  EXPECT_EQ(Owned<OIDDataItemSpec>(
                OIDDataItemSpec::CreateOIDDataItemSpec(u"p", u"1.3", nullptr, true, nullptr, 0x1'0000'0064ull, nullptr))
                ->GetLifespan(),
            100u);
  Owned<OIDGetDataItemsSpec> rows(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(u"levels", u"1.3.N", nullptr, false,
                                                                                 nullptr, 0, nullptr, true, 4, u"7"));
  EXPECT_EQ(Show(rows->GetN()) + " " + Show(rows->GetOid().c_str()), "7 1.3.0");
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
      {"LifeSpan=\"-4294967295\" Count=\"-2147483648\"", 1, false, INT32_MIN},
      {"LifeSpan=\"+12abc\" Count=\"2147483648\"", 12, false, INT32_MAX},
      {"Count=\"- 5\"", 0, false, 0},
  };
  for (const Case& c : cases) {
    auto document = Parse(std::string("<NextDataItem Name=\"n\" ") + c.attributes + "/>");
    Owned<NextOIDDataItemSpec> item(NextOIDDataItemSpec::CreateNextOidDataItemSpec(Root(document)));
    EXPECT_EQ(item->GetLifespan(), c.lifespan) << c.attributes;
    EXPECT_EQ(item->IsTransient(), c.transient) << c.attributes;
    EXPECT_EQ(item->Count(), c.count) << c.attributes;
  }
}

TEST(DataItemCopies, CopiesOwnTheirTextsAndTables) {
  auto document = Parse(
      "<DataItem Name=\"Status\" URI=\"/s.xml\" XPath=\"//s\" LifeSpan=\"20\">"
      "<Conversion Equals=\"READY\" Value=\"Ready\"/><Conversion Contains=\"Jam\" Value=\"Jam\"/></DataItem>");
  auto original =
      std::make_unique<XMLDataItemSpec>(*Owned<XMLDataItemSpec>(XMLDataItemSpec::CreateXMLDataItem(Root(document))));
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

// "o" is GetOid, "n" GetNextOid; the trace ends with the N counter.
TEST(GeneratedOids, SequenceFromTheNAttribute) {
  const struct {
    const char* attributes;
    const char* calls;
    std::string trace;
  } rows[] = {
      {"OID='1.3.N' N='1'", "oon", "1.3.1 1.3.2 1.3.3 #4"},
      {"OID='1.3.6.N.1'", "onn", " 1.3.6.0.1 1.3.6.1.1 #2"},   // no N: GetOid generates nothing, advances nothing
      {"OID='1.N.2.N' N='-2'", "oo", "1.-2.2.N 1.-1.2.N #0"},  // only the first N
      {"OID='1.3.6' N='4'", "n", "1.3.6 #5"},
      {"N='1'", "n", " #2"},
  };
  for (const auto& row : rows) {
    auto document = Parse(std::string("<GetDataItems Name='a' ") + row.attributes + "/>");
    Owned<OIDGetDataItemsSpec> item(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(Root(document)));
    std::string trace;
    for (const char* call = row.calls; *call != 0; ++call) {
      trace += Show((*call == 'o' ? item->GetOid() : item->GetNextOid()).c_str()) + " ";
    }
    EXPECT_EQ(trace + "#" + std::to_string(item->GetNCounter()), row.trace) << row.attributes;
  }
}

}  // namespace
