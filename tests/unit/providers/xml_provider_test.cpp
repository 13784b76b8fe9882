// The XML providers against a fake host: the buffer protocol, the per-URI
// document cache and its expiry, the failure codes, resource-type resolution
// and the web-services request.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/clock.h"
#include "providers/plsxml_provider_impl.h"
#include "providers/vexa_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "testlib/fake_host.h"
#include "support/ref.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;
using QxUtils::Ref;

constexpr const char* kProductInformation =
    "<ProductInformation><!-- x --><ProductSerialNumber>\n  SN123 </ProductSerialNumber>"
    "<Long>0123456789</Long></ProductInformation>";

std::string Tree(const std::string& configUri) {
  return "<DiscoveryTree xmlns='urn:tree' xmlns:dd='urn:dd'><Resource><dd:ResourceURI>" + configUri +
         "</dd:ResourceURI><dd:ResourceType>vexa:qvVexaProductConfigDyn</dd:ResourceType></Resource>"
         "</DiscoveryTree>";
}

class XmlProviders : public ::testing::Test {
 protected:
  void SetUp() override {
    address_ = Ref<FakeAddress>::Adopt(FakeAddress::Create(u"printer.example"));
    address_->responder = [this](const FakeExchange& e) {
      auto found = documents_.find(e.resource);
      return found == documents_.end() ? FakeReply{404, "", {}, S_OK} : FakeReply{200, found->second, {}, S_OK};
    };
  }
  void TearDown() override { SetFileTimeOffsetForTesting(0); }

  // Reads through the buffer protocol; the text, or "#HRESULT" on failure.
  static std::string Read(IXMLProvider* provider, const char16_t* uri, const char16_t* xpath,
                          uint32_t useCache = 1, uint32_t lifespan = 0) {
    char16_t buffer[512] = {};
    uint32_t needed = 0;
    HRESULT hr = provider->GetValue(uri, xpath, buffer, 512, &needed, useCache, lifespan);
    if (hr != S_OK) return "#" + std::to_string(hr);
    std::u16string text(buffer);
    return std::string(text.begin(), text.end());
  }

  Ref<FakeAddress> address_;
  std::map<std::u16string, std::string> documents_{
      {u"/qv/device/product_information.xml", kProductInformation}};
};

TEST_F(XmlProviders, BufferProtocol) {
  Ref<PLSXMLProviderImpl> provider = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address_.get()));
  ASSERT_TRUE(provider);
  struct Case {
    const char16_t* xpath;
    bool withBuffer;
    uint32_t size;
    HRESULT result;
    uint32_t needed;
    const char16_t* text;  // buffer afterwards
  } cases[] = {
      {u"//Long", false, 0, E_OUTOFMEMORY, 11, u"untouched"},
      {u"//Long", true, 10, E_OUTOFMEMORY, 11, u"untouched"},
      {u"//Long", true, 11, S_OK, 11, u"0123456789"},
      // Comments are not text; the layout around a token is not part of it.
      {u"//ProductSerialNumber", true, 6, S_OK, 6, u"SN123"},
      {u"//Missing", true, 64, S_FALSE, 0, u"untouched"},
      {u"//[", true, 64, E_FAIL, 0, u"untouched"},
  };
  for (const Case& c : cases) {
    char16_t buffer[64] = u"untouched";
    uint32_t needed = 99;
    EXPECT_EQ(provider->GetValue(PLSXMLProviderImpl::kProductInformationPath, c.xpath,
                                 c.withBuffer ? buffer : nullptr, c.size, &needed, 1, 0),
              c.result);
    EXPECT_EQ(needed, c.needed);
    EXPECT_EQ(std::u16string(buffer), c.text);
  }
  // Creation fetched the document; every read above came from the cache.
  EXPECT_EQ(address_->exchanges.size(), 1u);
}

TEST_F(XmlProviders, CacheAndFailures) {
  documents_[u"/bad.xml"] = "<a><b></a>";
  documents_[u"/big.xml"] = "<a>" + std::string(kMaxDeviceDocumentBytes, 'x') + "</a>";
  Ref<PLSXMLProviderImpl> provider = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address_.get()));
  ASSERT_TRUE(provider);
  const char16_t* info = PLSXMLProviderImpl::kProductInformationPath;
  constexpr int64_t kSecond = 10'000'000;
  struct Case {
    const char16_t* uri;
    uint32_t useCache;
    uint32_t lifespan;
    int64_t clockOffset;
    std::string result;
    size_t fetches;  // exchanges so far
  } cases[] = {
      {info, 1, 0, 0, "0123456789", 1},
      {info, 0, 0, 0, "0123456789", 2},
      {info, 1, 50, 4 * kSecond, "0123456789", 2},
      {info, 1, 50, 6 * kSecond, "0123456789", 3},
      {info, 1, 50, -kSecond, "0123456789", 4},  // the clock went back
      {u"/QV/device/product_information.xml", 1, 0, 0, "#" + std::to_string(E_FAIL), 5},
      {u"/QV/device/product_information.xml", 1, 0, 0, "#" + std::to_string(E_FAIL), 6},  // 404s are not cached
      {u"/bad.xml", 1, 0, 0, "#1", 7},
      {u"/bad.xml", 1, 0, 0, "#1", 7},  // the empty document is
      {u"/big.xml", 1, 0, 0, "#" + std::to_string(E_FAIL), 8},
  };
  for (const Case& c : cases) {
    SetFileTimeOffsetForTesting(c.clockOffset);
    EXPECT_EQ(Read(provider.get(), c.uri, u"//Long", c.useCache, c.lifespan), c.result);
    EXPECT_EQ(address_->exchanges.size(), c.fetches);
  }
  address_->createRequestResult = static_cast<HRESULT>(0x80070005);
  EXPECT_EQ(Read(provider.get(), u"/other.xml", u"//a"), "#" + std::to_string(static_cast<HRESULT>(0x80070005)));
}

TEST_F(XmlProviders, DiscoveryTreeResolvesResourceTypes) {
  std::string longUri = "/DevMgmt/" + std::string(300, 'p') + ".xml";
  documents_[u"/DevMgmt/DiscoveryTree.xml"] = Tree(longUri);
  documents_[std::u16string(longUri.begin(), longUri.end())] =
      "<c:Config xmlns:c='urn:c' xmlns:dd='urn:dd'><dd:SerialNumber>NV1</dd:SerialNumber></c:Config>";
  Ref<VEXAProviderImpl> provider = Ref<VEXAProviderImpl>::Adopt(VEXAProviderImpl::Create(address_.get()));
  ASSERT_TRUE(provider);
  EXPECT_EQ(Read(provider.get(), u"vexa:qvVexaProductConfigDyn", u"//dd:SerialNumber"), "NV1");
  EXPECT_EQ(Read(provider.get(), u"vexa:Unlisted", u"//dd:SerialNumber"), "#" + std::to_string(E_FAIL));
  EXPECT_EQ(address_->exchanges.size(), 3u);  // tree, config, the unlisted type as a path

  documents_[u"/DevMgmt/DiscoveryTree.xml"] = "<DiscoveryTree xmlns:dd='urn:dd'/>";
  EXPECT_EQ(VEXAProviderImpl::Create(address_.get()), nullptr);
  EXPECT_EQ(PLSXMLProviderImpl::Create(nullptr), nullptr);
}

TEST_F(XmlProviders, WebServicesRequest) {
  documents_[u"/device"] =
      "<s:Envelope xmlns:s='urn:s' xmlns:wprt='urn:w'><wprt:DeviceId>MFG:N;SN:X1;</wprt:DeviceId></s:Envelope>";
  Ref<WSProviderImpl> provider = Ref<WSProviderImpl>::Adopt(WSProviderImpl::Create(address_.get()));
  ASSERT_TRUE(provider);
  EXPECT_EQ(Read(provider.get(), u"urn:x:device:Svc", u"//wprt:DeviceId", 0), "MFG:N;SN:X1;");
  ASSERT_EQ(address_->exchanges.size(), 2u);
  const FakeExchange& first = address_->exchanges[0];
  const FakeExchange& second = address_->exchanges[1];
  EXPECT_EQ(first.method, u"POST");
  EXPECT_EQ(first.port, 3910u);
  EXPECT_EQ(first.userName, u"guest");
  EXPECT_EQ(first.password, u"");
  EXPECT_EQ(first.contentType, u"application/soap+xml");
  EXPECT_NE(first.body.find("<wsa:To>printer.example:3910</wsa:To>"), std::string::npos);
  auto ids = [](const std::string& body) { return body.substr(body.find("urn:uuid:"), 200); };
  EXPECT_NE(ids(first.body), ids(second.body));

  struct Case {
    const char16_t* urn;
    HRESULT result;
    std::u16string path;
  } cases[] = {{u"urn:a:b", S_OK, u"/a"}, {WSProviderImpl::kDeviceServiceUrn, S_OK, u"/device"},
               {u"urn:a", E_FAIL, u""}, {nullptr, E_FAIL, u""}};
  for (const Case& c : cases) {
    char16_t buffer[32] = {};
    uint32_t needed = 0;
    EXPECT_EQ(provider->GetServicePath(c.urn, buffer, 32, &needed), c.result);
    EXPECT_EQ(std::u16string(buffer), c.path);
  }
  EXPECT_EQ(Read(provider.get(), u"urn:a", u"//x"), "#" + std::to_string(E_FAIL));
  EXPECT_EQ(address_->exchanges.size(), 2u);  // nothing sent for a bad URN
}

}  // namespace
