// The XML providers' paths the bench cannot take or cannot see: a host that
// makes no request, a resource URI longer than the first lookup buffer, an
// unlisted resource type, service paths of the web-services provider, a
// discovery tree without the configuration resource; the buffer protocol at its
// edges, the document cache under a moved clock and at its bounds, the request
// on the wire, and what detection logs. Exchanges with a real device are the
// bench's (tests/integration/xml).
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "providers/plsxml_provider_impl.h"
#include "providers/vexa_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "support/ref.h"
#include "testlib/capture_log.h"
#include "testlib/fake_host.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;
using QxUtils::Ref;

// The text, or "#HRESULT" when the read does not answer S_OK.
std::string Read(IXMLProvider* provider, const char16_t* uri, const char16_t* xpath, uint32_t useCache = 1,
                 uint32_t lifespan = 0) {
  char16_t buffer[64] = {};
  uint32_t needed = 0;
  HRESULT hr = provider->GetValue(uri, xpath, buffer, 64, &needed, useCache, lifespan);
  std::u16string text(buffer);
  return hr != S_OK ? "#" + std::to_string(hr) : std::string(text.begin(), text.end());
}

// A fake device serving `documents` by path (404 for others) on every port.
Ref<FakeAddress> Device(const std::map<std::u16string, std::string>& documents) {
  auto address = Ref<FakeAddress>::Adopt(FakeAddress::Create(u"printer.example"));
  address->responder = [&documents](const FakeExchange& e) {
    auto found = documents.find(e.resource);
    return found == documents.end() ? FakeReply{404, "", {}, S_OK} : FakeReply{200, found->second, {}, S_OK};
  };
  return address;
}

TEST(XmlProviders, ResourceTypesServicePathsAndFailures) {
  std::string longUri = "/DevMgmt/" + std::string(300, 'p') + ".xml";
  std::map<std::u16string, std::string> documents{
      {u"/DevMgmt/DiscoveryTree.xml",
       "<T xmlns='urn:t' xmlns:dd='urn:dd'><R><dd:ResourceURI>" + longUri +
           "</dd:ResourceURI><dd:ResourceType>vexa:qvVexaProductConfigDyn</dd:ResourceType></R></T>"},
      {std::u16string(longUri.begin(), longUri.end()),
       "<C xmlns:dd='urn:dd'><dd:SerialNumber>NV1</dd:SerialNumber></C>"},
      {u"/device", "<e xmlns:wprt='urn:w'><wprt:DeviceId>SN:1</wprt:DeviceId></e>"}};
  auto address = Device(documents);
  auto vexa = Ref<VEXAProviderImpl>::Adopt(VEXAProviderImpl::Create(address.get()));
  ASSERT_TRUE(vexa);
  EXPECT_EQ(Read(vexa.get(), u"vexa:qvVexaProductConfigDyn", u"//dd:SerialNumber"), "NV1");
  EXPECT_EQ(Read(vexa.get(), u"vexa:qvVexaProductConfigDyn", u"//["), "#" + std::to_string(E_FAIL));
  EXPECT_EQ(Read(vexa.get(), u"vexa:Unlisted", u"//dd:SerialNumber"), "#" + std::to_string(E_FAIL));  // a 404
  EXPECT_EQ(address->exchanges.back().resource, u"vexa:Unlisted");  // fetched as a path

  auto ws = Ref<WSProviderImpl>::Adopt(WSProviderImpl::Create(address.get()));
  ASSERT_TRUE(ws);
  for (auto [urn, path] : {std::pair{u"urn:a:b", u"/a"}, {u"urn:a", u""}, {nullptr, u""}}) {
    char16_t buffer[8] = {};
    uint32_t needed = 0;
    EXPECT_EQ(ws->GetServicePath(urn, buffer, 8, &needed), *path != u'\0' ? S_OK : E_FAIL);
    EXPECT_EQ(std::u16string(buffer), path);
  }
  const size_t sent = address->exchanges.size();
  EXPECT_EQ(Read(ws.get(), u"urn:a", u"//e"), "#" + std::to_string(E_FAIL));
  EXPECT_EQ(address->exchanges.size(), sent);  // nothing sent for a URN without a path

  address->createRequestResult = static_cast<HRESULT>(0x80070005);
  EXPECT_EQ(Read(vexa.get(), u"/other.xml", u"//a"), "#" + std::to_string(static_cast<HRESULT>(0x80070005)));
}

TEST(XmlProviders, BufferProtocolAtItsEdges) {
  const std::u16string t255(255, u'a'), t256(256, u'b');
  std::map<std::u16string, std::string> documents{
      {u"/qv/device/product_information.xml", "<P><ProductSerialNumber>S</ProductSerialNumber><L255>" +
                                                  std::string(255, 'a') + "</L255><L256>" + std::string(256, 'b') +
                                                  "</L256><Pair>\xF0\x9F\x98\x80</Pair></P>"}};
  auto address = Device(documents);
  auto provider = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address.get()));
  ASSERT_TRUE(provider);
  const struct {
    const char16_t* xpath;
    bool nullBuffer;
    uint32_t size;
    HRESULT hr;
    uint32_t required;
    std::u16string text;  // what the buffer holds afterwards, when written
  } rows[] = {
      {u"//L255", true, 256, E_OUTOFMEMORY, 256, u""},  {u"//L255", false, 256, S_OK, 256, t255},
      {u"//L255", false, 255, E_OUTOFMEMORY, 256, u""}, {u"//L256", false, 256, E_OUTOFMEMORY, 257, u""},
      {u"//L256", false, 257, S_OK, 257, t256},         {u"//Pair", false, 2, E_OUTOFMEMORY, 3, u""},
      {u"//Pair", false, 3, S_OK, 3, u"\U0001F600"},    {u"//None", false, 256, S_FALSE, 0, u""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.size) + std::string(row.xpath, row.xpath + 6));
    // Guard units past the announced size catch a write beyond it.
    std::vector<char16_t> buffer(row.size + 8, u'#');
    uint32_t required = 99;
    EXPECT_EQ(provider->GetValue(u"/qv/device/product_information.xml", row.xpath,
                                 row.nullBuffer ? nullptr : buffer.data(), row.size, &required, 1, 0),
              row.hr);
    EXPECT_EQ(required, row.required);
    const size_t written = row.hr == S_OK ? row.text.size() + 1 : 0;
    if (written > 0) {
      EXPECT_EQ(std::u16string(buffer.data()), row.text);
    }
    EXPECT_EQ(std::count(buffer.begin() + static_cast<std::ptrdiff_t>(written), buffer.end(), u'#'),
              static_cast<std::ptrdiff_t>(buffer.size() - written));
  }
}

struct ClockOffset {
  explicit ClockOffset(int64_t ticks) { SetFileTimeOffsetForTesting(ticks); }
  ~ClockOffset() { SetFileTimeOffsetForTesting(0); }
};

// One read after another on one provider: which of them reach the device.
TEST(XmlProviders, DocumentCacheKeepsExpiresAndStaysBounded) {
  constexpr int64_t kTenth = 1000000;
  std::map<std::u16string, std::string> documents{
      {u"/qv/device/product_information.xml", "<P><ProductSerialNumber>S</ProductSerialNumber></P>"},
      {u"/a", "<a>1</a>"},
      {u"/broken", "<a>1</b>"}};
  auto address = Device(documents);
  auto provider = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address.get()));
  ASSERT_TRUE(provider);
  const struct {
    const char16_t* uri;
    uint32_t useCache, lifespan;
    int64_t clock;
    const char* answer;  // what /a (or /missing) holds at this step, "" to leave it
    std::string expected;
    bool fetched;
  } steps[] = {
      {u"/a", 1, 50, 0, "", "1", true},
      {u"/a", 1, 50, 49 * kTenth, "<a>2</a>", "1", false},  // within the lifespan
      {u"/a", 1, 50, 51 * kTenth, "", "2", true},           // past it
      {u"/a", 1, 0, 51 * kTenth, "<a>3</a>", "2", false},   // lifespan 0: never expires
      {u"/a", 1, 50, -36000 * kTenth, "", "3", true},       // the clock went back
      {u"/a", 0, 0, 0, "<a>4</a>", "4", true},              // useCache 0 fetches, and keeps what it read
      {u"/a", 1, 0, 0, "<a>5</a>", "4", false},
      {u"/A", 1, 0, 0, "", "#" + std::to_string(E_FAIL), true},  // another key: a 404
      {u"/A", 1, 0, 0, "", "#" + std::to_string(E_FAIL), true},  // which cached nothing
      {u"/broken", 1, 0, 0, "", "#1", true},
      {u"/broken", 1, 0, 0, "", "#1", false},  // not well-formed: kept as an empty document
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.expected);
    if (*step.answer != 0) documents[u"/a"] = step.answer;
    ClockOffset clock(step.clock);
    const size_t before = address->exchanges.size();
    EXPECT_EQ(Read(provider.get(), step.uri, u"/*", step.useCache, step.lifespan), step.expected);
    EXPECT_EQ(address->exchanges.size(), before + (step.fetched ? 1 : 0));
  }

  // A device naming ever new resources: the least recently used documents go,
  // the one in use stays.
  for (int i = 0; i < 40; ++i) {
    std::u16string uri = u"/r" + std::u16string(1, static_cast<char16_t>(u'A' + i));
    documents[uri] = "<r>" + std::to_string(i) + "</r>";
    EXPECT_EQ(Read(provider.get(), uri.c_str(), u"/r"), std::to_string(i));
    EXPECT_EQ(Read(provider.get(), u"/a", u"/a"), "4");
  }
  size_t before = address->exchanges.size();
  EXPECT_EQ(Read(provider.get(), u"/a", u"/a"), "4");
  EXPECT_EQ(address->exchanges.size(), before);
  EXPECT_EQ(Read(provider.get(), u"/rA", u"/r"), "0");
  EXPECT_EQ(address->exchanges.size(), before + 1);
}

// Hostile bodies: none may make the provider hold much more than real devices
// send, and a declared entity refuses the whole document.
TEST(XmlProviders, OversizedAndEntityDocumentsAreRefused) {
  // The limits as documented: 1 MiB of body and 60,000 nodes.
  constexpr size_t kBytes = 1 << 20, kNodes = 60000;
  std::string tiny;
  for (size_t i = 0; i < kNodes; ++i) tiny += "<a/>";
  std::string largest = "<P>" + tiny.substr(4) + "</P>";  // exactly the node limit
  const struct {
    std::string body;
    std::string expected;
  } rows[] = {
      {largest, "#" + std::to_string(E_OUTOFMEMORY)},  // the node exists: it answers
      {"<P>" + tiny + "</P>", "#1"},                   // one node more: read as not well-formed
      {"<P a='1' b='2'>" + tiny.substr(20) + "</P>", "#" + std::to_string(E_OUTOFMEMORY)},
      {"<P a='1' b='2'>" + tiny.substr(16) + "</P>", "#1"},  // attributes count two each
      {"<P>" + std::string(kBytes - 7, 'x') + "</P>", "#" + std::to_string(E_OUTOFMEMORY)},
      {"<P>" + std::string(kBytes - 6, 'x') + "</P>", "#" + std::to_string(E_FAIL)},
      {"<!DOCTYPE P [<!ENTITY n 'NV1'>]><P>&n;</P>", "#1"},
  };
  for (const auto& row : rows) {
    std::map<std::u16string, std::string> documents{
        {u"/p", row.body}, {u"/qv/device/product_information.xml", "<P><ProductSerialNumber/></P>"}};
    auto address = Device(documents);
    auto provider = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address.get()));
    ASSERT_TRUE(provider);
    uint32_t needed = 0;
    HRESULT hr = provider->GetValue(u"/p", u"/P", nullptr, 0, &needed, 1, 0);
    EXPECT_EQ("#" + std::to_string(hr), row.expected) << row.body.size();
  }
}

// Creation is detection: a device without the protocol is an answer, so it
// leaves no failure record; a read that fails later does.
TEST(XmlProviders, DetectingAnAbsentProtocolLogsNoFailure) {
  const struct {
    const char* device;
    FakeReply reply;
    HRESULT createResult;
  } devices[] = {
      {"404", {404, "", {}, S_OK}, S_OK},
      {"not XML", {200, "<html><body>", {}, S_OK}, S_OK},
      {"no node", {200, "<a xmlns:dd='urn:dd' xmlns:wprt='urn:w'/>", {}, S_OK}, S_OK},
      {"refused", {200, "", {}, static_cast<HRESULT>(0x80072efd)}, S_OK},
      {"no request", {}, static_cast<HRESULT>(0x80070005)},
  };
  for (const auto& d : devices) {
    SCOPED_TRACE(d.device);
    auto address = Ref<FakeAddress>::Adopt(FakeAddress::Create(u"printer.example"));
    address->responder = [&d](const FakeExchange&) { return d.reply; };
    address->createRequestResult = d.createResult;
    NorvaneTest::CaptureLog log;
    EXPECT_EQ(VEXAProviderImpl::Create(address.get()), nullptr);
    EXPECT_EQ(PLSXMLProviderImpl::Create(address.get()), nullptr);
    EXPECT_EQ(WSProviderImpl::Create(address.get()), nullptr);
    for (const auto& record : log.Records()) {
      // The component runtime's record is written in that category whatever happens.
      if (record.text.rfind("CoInitialize", 0) == 0) continue;
      EXPECT_EQ(record.category & QxLogging::kStandout, 0u) << record.text;
    }
  }
  std::map<std::u16string, std::string> documents{
      {u"/qv/device/product_information.xml", "<P><ProductSerialNumber>S</ProductSerialNumber></P>"}};
  auto address = Device(documents);
  auto provider = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address.get()));
  ASSERT_TRUE(provider);
  NorvaneTest::CaptureLog log;
  EXPECT_EQ(Read(provider.get(), u"/gone.xml", u"/a"), "#" + std::to_string(E_FAIL));
  EXPECT_TRUE(log.Contains("HTTP 404", QxLogging::kStandout));
}

// The GetPrinterElements request, whole (its port and path are the bench's),
// its two ids masked: random (version 4) UUIDs, for the message and the sender.
TEST(XmlProviders, WebServicesRequestOnTheWire) {
  std::map<std::u16string, std::string> documents{
      {u"/device", "<e xmlns:wprt='urn:w'><wprt:DeviceId>SN:1</wprt:DeviceId></e>"}};
  auto address = Device(documents);
  auto ws = Ref<WSProviderImpl>::Adopt(WSProviderImpl::Create(address.get()));
  ASSERT_TRUE(ws);
  ASSERT_EQ(address->exchanges.size(), 1u);
  const FakeExchange& sent = address->exchanges[0];
  const std::regex uuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::vector<std::string> ids;
  for (std::sregex_iterator it(sent.body.begin(), sent.body.end(), uuid), end; it != end; ++it)
    ids.push_back(it->str());
  ASSERT_EQ(ids.size(), 2u);
  EXPECT_NE(ids[0], ids[1]);
  EXPECT_EQ(std::regex_replace(sent.body, uuid, "ID"),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?> <soap:Envelope"
            " xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\""
            " xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
            " xmlns:UNS1=\"http://www.microsoft.com/windows/test/testdevice/11/2005\""
            " xmlns:pri=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\"> <soap:Header>"
            " <wsa:To>printer.example:3910</wsa:To>"
            " <wsa:Action>http://schemas.microsoft.com/windows/2006/08/wdp/print/GetPrinterElements</wsa:Action>"
            " <wsa:MessageID>urn:uuid:ID</wsa:MessageID> <wsa:ReplyTo>"
            " <wsa:Address>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:Address>"
            " </wsa:ReplyTo> <wsa:From> <wsa:Address>urn:uuid:ID</wsa:Address> </wsa:From>"
            " <UNS1:ServiceIdentifier>uri:prn</UNS1:ServiceIdentifier> </soap:Header> <soap:Body>"
            " <pri:GetPrinterElementsRequest> <pri:RequestedElements> <pri:Name>pri:PrinterDescription</pri:Name>"
            " <pri:Name>pri:PrinterConfiguration</pri:Name> <pri:Name>pri:PrinterCapabilities</pri:Name>"
            " <pri:Name>pri:DefaultPrintTicket</pri:Name> <pri:Name>pri:PrinterStatus</pri:Name>"
            " </pri:RequestedElements> </pri:GetPrinterElementsRequest> </soap:Body> </soap:Envelope>");
}

}  // namespace
