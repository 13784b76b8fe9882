// The shared XML layer: loading, XPath with the document's own prefixes, node
// reads, and the refusal of hostile documents.
#include <gtest/gtest.h>
#include <libxml/tree.h>

#include <chrono>
#include <fstream>
#include <string>

#include "datamap_test_support.h"
#include "platform/xml.h"
#include "testlib/temp_dir.h"

namespace {

using namespace Norvane;
using DataMapTest::Parse;
using DataMapTest::Root;

std::string SelectText(const xmlNode* context, std::string_view xpath) {
  xmlNode* found = nullptr;
  HRESULT hr = Xml::SelectFirstNode(context, xpath, &found);
  if (hr != S_OK) return "hr=" + std::to_string(hr);
  return Xml::TextContentUtf8(found);
}

int CountChildren(const xmlNode* node) {
  int n = 0;
  for (xmlNode* child = node->children; child != nullptr; child = child->next) ++n;
  return n;
}

TEST(XmlLoad, BytesTextAndFileGiveTheSameTreeWithoutBlankText) {
  const char* xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<DataMaps>\n  <XMLDataMap Protocol=\"WS\"/>\n"
      "  <!-- note -->\n  <IPPDataMap>\n  </IPPDataMap>\n</DataMaps>\n";
  Xml::DocumentPtr fromBytes = Parse(xml);
  ASSERT_TRUE(fromBytes);
  EXPECT_EQ(CountChildren(Root(fromBytes)), 3);  // element, comment, element: no indentation
  EXPECT_EQ(CountChildren(Root(fromBytes)->last), 0);
  // Whitespace-only text goes even beside other text; under xml:space="preserve" it stays.
  Xml::DocumentPtr mixed = Parse("<a>x <b/> <c xml:space=\"preserve\"> </c><d>\n\t</d></a>");
  EXPECT_EQ(Xml::TextContentUtf8(Root(mixed)), "x  ");
  EXPECT_EQ(CountChildren(Root(mixed)->last), 0);

  // UTF-16 text that claims UTF-16 in its declaration is still read correctly.
  Xml::DocumentPtr fromText;
  ASSERT_EQ(
      Xml::LoadText(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a x=\"\u00e9\">caf\u00e9 \u20ac</a>", &fromText),
      S_OK);
  EXPECT_EQ(Xml::TextContent(Root(fromText)), u"caf\u00e9 \u20ac");
  EXPECT_EQ(Xml::AttributeText(Root(fromText), "x"), std::optional<std::string>("\xc3\xa9"));

  // Bytes in UTF-16LE with a byte-order mark are detected.
  std::string utf16le("\xff\xfe", 2);
  for (char c : std::string("<a>ok</a>")) utf16le += std::string{c, '\0'};
  Xml::DocumentPtr fromUtf16Bytes;
  ASSERT_EQ(Xml::LoadBytes(utf16le, &fromUtf16Bytes), S_OK);
  EXPECT_EQ(Xml::TextContentUtf8(Root(fromUtf16Bytes)), "ok");

  // A file by a wide name (the narrow one reads the XPath tests' fixture).
  const std::string path = DataMapTest::FixturePath("device_datamaps.xml");
  Xml::DocumentPtr fromFile;
  ASSERT_EQ(Xml::LoadFile(std::u16string(path.begin(), path.end()).c_str(), &fromFile), S_OK);
  EXPECT_TRUE(Xml::LocalNameIs(Root(fromFile), "DataMaps"));
}

TEST(XmlLoad, FailuresAreStatusesAndStaySilent) {
  testing::internal::CaptureStderr();
  Xml::DocumentPtr document = Xml::CreateDocument();
  // Whatever the parser refuses takes this one way out.
  EXPECT_EQ(Xml::LoadBytes("<DataMaps><XMLDataMap></DataMaps>", &document), S_FALSE);
  EXPECT_FALSE(document);  // a failed load leaves no document behind
  EXPECT_EQ(Xml::LoadFile("/nonexistent/datamaps.xml", &document), S_FALSE);
  EXPECT_EQ(Xml::LoadFile("/tmp", &document), S_FALSE);
  EXPECT_EQ(Xml::LoadFile(static_cast<const char*>(nullptr), &document), E_INVALIDARG);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The first entity declaration ends the parse, so no entity is expanded (an
// entity bomb is refused like the file entity here) and no file is read; the
// parser's default limits refuse huge attributes and deep nesting, quickly.
TEST(XmlLoad, EntitiesHugeAttributesAndDeepNestingAreRefusedWithoutReadingFiles) {
  NorvaneTest::TempDir dir;
  const std::string path = dir.Path() + "/secret", dtdPath = dir.Path() + "/leak.dtd";
  const std::string secret = "NORVANE-SECRET-7f3a";
  std::ofstream(path) << secret;
  std::ofstream(dtdPath) << "<!ENTITY leak SYSTEM \"file://" << path << "\">";
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  for (int i = 0; i < 100000; ++i) deep += "</a>";
  const std::string refused[] = {
      "<?xml version=\"1.0\"?><!DOCTYPE DataMaps [<!ENTITY xxe SYSTEM \"file://" + path +
          "\">]><DataMaps><s a=\"x\">&xxe;</s></DataMaps>",
      "<?xml version=\"1.0\"?><!DOCTYPE DataMaps [<!ENTITY % p SYSTEM \"file://" + path + "\"> %p;]><DataMaps/>",
      // Ten mebibytes in one attribute exceed the parser's default text limit.
      "<DataMaps><XMLDataMap Protocol=\"" + std::string(10 * 1024 * 1024, 'A') + "\"/></DataMaps>",
      deep,
  };
  testing::internal::CaptureStderr();
  auto started = std::chrono::steady_clock::now();
  Xml::DocumentPtr document;
  for (const auto& text : refused) EXPECT_EQ(Xml::LoadBytes(text, &document), S_FALSE) << text.substr(0, 60);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
  // The external subset is never fetched, so the entity stays an unexpanded
  // reference (or the parse fails); either way the secret is not read.
  const std::string externalSubset =
      "<?xml version=\"1.0\"?><!DOCTYPE DataMaps SYSTEM \"file://" + dtdPath + "\"><DataMaps><s>&leak;</s></DataMaps>";
  if (Xml::LoadBytes(externalSubset, &document) == S_OK) {
    EXPECT_EQ(Xml::TextContentUtf8(reinterpret_cast<xmlNode*>(document.get())).find(secret), std::string::npos);
    EXPECT_EQ(document->intSubset == nullptr ? nullptr : document->intSubset->entities, nullptr);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(XmlXPath, DocumentPrefixesAndTheDotPredicateLookup) {
  Xml::DocumentPtr tree;
  ASSERT_EQ(Xml::LoadFile(DataMapTest::FixturePath("discovery_tree.xml").c_str(), &tree), S_OK);
  xmlNode* top = reinterpret_cast<xmlNode*>(tree.get());

  // The resource lookup of the discovery tree puts a predicate on ".".
  EXPECT_EQ(SelectText(top, "//.[dd:ResourceType=\"vexa:qvVexaProductStatusDyn\"]/dd:ResourceURI"),
            "/DevMgmt/ProductStatusDyn.xml");
  EXPECT_EQ(SelectText(top, "//.[dd:ResourceType=\"vexa:none\"]/dd:ResourceURI"), "hr=1");
  EXPECT_EQ(SelectText(top, "//dd:Revision"), "3.2.1");
  EXPECT_EQ(SelectText(top, "//vexa:SupportedResource[2]/dd:ResourceURI"), "/DevMgmt/ProductStatusDyn.xml");

  // Relative to an element, the first match in document order.
  xmlNode* resource = nullptr;
  ASSERT_EQ(Xml::SelectFirstNode(top, std::u16string_view(u"//vexa:SupportedResource"), &resource), S_OK);
  EXPECT_EQ(SelectText(resource, "dd:ResourceType"), "vexa:qvVexaProductConfigDyn");
  // A prefix the document does not declare is an error of the expression.
  EXPECT_EQ(SelectText(top, "//ns:ResourceURI"), "hr=" + std::to_string(E_FAIL));
}

TEST(XmlXPath, PrefixesDeclaredDeepInsideAndFirstDeclarationWins) {
  Xml::DocumentPtr document = Parse(
      "<Envelope><Body><r xmlns:wprt=\"urn:print\"><wprt:Name>first</wprt:Name></r>"
      "<r xmlns:wprt=\"urn:other\"><wprt:Name>second</wprt:Name></r></Body></Envelope>");
  xmlNode* top = reinterpret_cast<xmlNode*>(document.get());
  EXPECT_EQ(SelectText(top, "//wprt:Name"), "first");
}

TEST(XmlXPath, ResultsOtherThanOrdinaryNodes) {
  testing::internal::CaptureStderr();
  Xml::DocumentPtr document = Parse("<a xmlns:p=\"urn:p\" Name=\"n1\"><b>x</b><b>y</b></a>");
  xmlNode* root = Root(document);
  EXPECT_EQ(SelectText(root, "@Name"), "n1");
  EXPECT_EQ(SelectText(root, "count(b)"), "hr=" + std::to_string(E_FAIL));
  EXPECT_EQ(SelectText(root, "b[@"), "hr=" + std::to_string(E_FAIL));
  EXPECT_EQ(SelectText(root, std::string_view("b\0c", 3)), "hr=" + std::to_string(E_FAIL));
  // Namespace nodes die with the query, so they are never handed out.
  EXPECT_EQ(SelectText(root, "namespace::*"), "hr=1");
  EXPECT_EQ(SelectText(root, "namespace::* | b"), "x");
  xmlNode* found = reinterpret_cast<xmlNode*>(0x1);
  EXPECT_EQ(Xml::SelectFirstNode(nullptr, "a", &found), E_INVALIDARG);
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(XmlNodes, NamesAttributesAndTextContent) {
  Xml::DocumentPtr document = Parse(
      "<x:DataItem xmlns:x=\"urn:x\" Name=\"n\" name=\"lower\" x:Value=\"v\">one<![CDATA[<two>]]><!--c-->"
      "<i>three</i>&amp;</x:DataItem>");
  xmlNode* root = Root(document);
  EXPECT_EQ(Xml::LocalName(root), "DataItem");
  EXPECT_TRUE(Xml::LocalNameIs(root, "dataitem"));
  EXPECT_FALSE(Xml::LocalNameIs(root, "DataItems"));
  EXPECT_EQ(Xml::AttributeText(root, "Name"), std::optional<std::string>("n"));
  EXPECT_EQ(Xml::AttributeText(root, "name"), std::optional<std::string>("lower"));
  EXPECT_EQ(Xml::AttributeText(root, "NAME"), std::nullopt);
  EXPECT_EQ(Xml::AttributeText(root, "Value"), std::nullopt);  // the prefix is part of the name
  EXPECT_EQ(Xml::AttributeText(root, "x:Value"), std::optional<std::string>("v"));
  EXPECT_EQ(Xml::TextContentUtf8(root), "one<two>three&");
  xmlNode* comment = root->children->next->next;
  ASSERT_EQ(comment->type, XML_COMMENT_NODE);
  EXPECT_EQ(Xml::LocalName(comment), "");
  EXPECT_EQ(Xml::TextContentUtf8(comment), "c");
  EXPECT_EQ(Xml::TextContentUtf8(nullptr), "");
}

TEST(XmlNodes, ACallersDomKeepsTheTextOfItsOwnEntities) {
  // Parsed as a host may parse it: entities left as references.
  const std::string text =
      "<!DOCTYPE DataMaps [<!ENTITY maker \"Acme\"><!ENTITY model \"&maker; 9000\">"
      "<!ENTITY far SYSTEM \"file:///etc/hostname\">]>"
      "<StaticDataItem Name=\"M\" Value=\"&model; &amp; co\">&model;<i>&maker;</i>&far;</StaticDataItem>";
  Xml::DocumentPtr document(
      xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, XML_PARSE_NONET));
  ASSERT_NE(document, nullptr);
  xmlNode* root = xmlDocGetRootElement(document.get());
  EXPECT_EQ(Xml::AttributeText(root, "Value"), std::optional<std::string>("Acme 9000 & co"));
  EXPECT_EQ(Xml::TextContentUtf8(root), "Acme 9000Acme");
}

}  // namespace
