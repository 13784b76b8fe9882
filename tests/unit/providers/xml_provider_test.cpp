// The XML providers' paths the bench cannot take: a host that makes no request,
// a resource URI longer than the first lookup buffer, an unlisted resource type,
// service paths of the web-services provider, a discovery tree without the
// configuration resource. The buffer protocol, the document cache and the
// exchanges with a device are the bench's (tests/integration/xml).
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "providers/vexa_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;
using QxUtils::Ref;

// The text, or "#HRESULT" when the read does not answer S_OK.
std::string Read(IXMLProvider* provider, const char16_t* uri, const char16_t* xpath) {
  char16_t buffer[64] = {};
  uint32_t needed = 0;
  HRESULT hr = provider->GetValue(uri, xpath, buffer, 64, &needed, 1, 0);
  std::u16string text(buffer);
  return hr != S_OK ? "#" + std::to_string(hr) : std::string(text.begin(), text.end());
}

TEST(XmlProviders, ResourceTypesServicePathsAndFailures) {
  std::string longUri = "/DevMgmt/" + std::string(300, 'p') + ".xml";
  std::map<std::u16string, std::string> documents{
      {u"/DevMgmt/DiscoveryTree.xml",
       "<T xmlns='urn:t' xmlns:dd='urn:dd'><R><dd:ResourceURI>" + longUri +
           "</dd:ResourceURI><dd:ResourceType>vexa:qvVexaProductConfigDyn</dd:ResourceType></R></T>"},
      {std::u16string(longUri.begin(), longUri.end()), "<C xmlns:dd='urn:dd'><dd:SerialNumber>NV1</dd:SerialNumber></C>"},
      {u"/device", "<e xmlns:wprt='urn:w'><wprt:DeviceId>SN:1</wprt:DeviceId></e>"}};
  auto address = Ref<FakeAddress>::Adopt(FakeAddress::Create(u"printer.example"));
  address->responder = [&documents](const FakeExchange& e) {
    auto found = documents.find(e.resource);
    return found == documents.end() ? FakeReply{404, "", {}, S_OK} : FakeReply{200, found->second, {}, S_OK};
  };
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
  address->createRequestResult = S_OK;
  documents[u"/DevMgmt/DiscoveryTree.xml"] = "<T xmlns:dd='urn:dd'/>";
  EXPECT_EQ(VEXAProviderImpl::Create(address.get()), nullptr);
}

}  // namespace
