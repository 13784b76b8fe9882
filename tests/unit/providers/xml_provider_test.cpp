// The XML providers against a fake host: the buffer protocol, the per-URI
// document cache and its expiry, failure codes, resource types and service
// paths. The exchanges with a device are the bench's (tests/integration/xml).
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/clock.h"
#include "providers/plsxml_provider_impl.h"
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

const std::string kFail = "#" + std::to_string(E_FAIL);

class XmlProviders : public ::testing::Test {
 protected:
  void SetUp() override {
    address_ = Ref<FakeAddress>::Adopt(FakeAddress::Create(u"printer.example"));
    address_->responder = [this](const FakeExchange& e) {
      auto found = documents_.find(e.resource);
      return found == documents_.end() ? FakeReply{404, "", {}, S_OK} : FakeReply{200, found->second, {}, S_OK};
    };
    info_ = Ref<PLSXMLProviderImpl>::Adopt(PLSXMLProviderImpl::Create(address_.get()));
    ASSERT_TRUE(info_);
  }
  void TearDown() override { SetFileTimeOffsetForTesting(0); }

  // The text, or "#HRESULT" when the read does not answer S_OK.
  static std::string Read(IXMLProvider* provider, const char16_t* uri, const char16_t* xpath, uint32_t useCache = 1,
                          uint32_t lifespan = 0) {
    char16_t buffer[512] = {};
    uint32_t needed = 0;
    HRESULT hr = provider->GetValue(uri, xpath, buffer, 512, &needed, useCache, lifespan);
    std::u16string text(buffer);
    return hr != S_OK ? "#" + std::to_string(hr) : std::string(text.begin(), text.end());
  }

  std::map<std::u16string, std::string> documents_{
      {PLSXMLProviderImpl::kProductInformationPath,
       "<P><!-- x --><ProductSerialNumber>\n  SN123 </ProductSerialNumber><Long>0123456789</Long></P>"}};
  Ref<FakeAddress> address_;
  Ref<PLSXMLProviderImpl> info_;
};

TEST_F(XmlProviders, BufferProtocol) {
  struct Case {
    const char16_t* xpath;
    uint32_t size;  // 0: no buffer
    HRESULT result;
    uint32_t needed;
    const char16_t* text;  // the buffer afterwards
  } cases[] = {
      {u"//Long", 0, E_OUTOFMEMORY, 11, u"untouched"},     {u"//Long", 10, E_OUTOFMEMORY, 11, u"untouched"},
      {u"//Long", 11, S_OK, 11, u"0123456789"},            {u"//ProductSerialNumber", 6, S_OK, 6, u"SN123"},
      {u"//Missing", 64, S_FALSE, 0, u"untouched"},        {u"//[", 64, E_FAIL, 0, u"untouched"},
  };
  for (const Case& c : cases) {
    char16_t buffer[64] = u"untouched";
    uint32_t needed = 99;
    EXPECT_EQ(info_->GetValue(PLSXMLProviderImpl::kProductInformationPath, c.xpath, c.size ? buffer : nullptr,
                              c.size, &needed, 1, 0),
              c.result);
    EXPECT_EQ(needed, c.needed);
    EXPECT_EQ(std::u16string(buffer), c.text);
  }
  EXPECT_EQ(address_->exchanges.size(), 1u);  // creation's fetch answered them all
}

TEST_F(XmlProviders, CacheAndFailures) {
  documents_[u"/bad.xml"] = "<a><b></a>";
  documents_[u"/big.xml"] = "<a>" + std::string(kMaxDeviceDocumentBytes, 'x') + "</a>";
  const char16_t* info = PLSXMLProviderImpl::kProductInformationPath;
  constexpr int64_t kSecond = 10'000'000;
  struct Case {
    const char16_t* uri;
    uint32_t useCache, lifespan;
    int64_t clockOffset;
    std::string result;
    size_t fetches;  // so far
  } cases[] = {
      {info, 1, 0, 0, "0123456789", 1},           {info, 0, 0, 0, "0123456789", 2},
      {info, 1, 50, 4 * kSecond, "0123456789", 2}, {info, 1, 50, 6 * kSecond, "0123456789", 3},
      {info, 1, 50, -kSecond, "0123456789", 4},  // the clock went back
      {u"/QV/device/product_information.xml", 1, 0, 0, kFail, 5},
      {u"/QV/device/product_information.xml", 1, 0, 0, kFail, 6},  // a 404 is not cached
      {u"/bad.xml", 1, 0, 0, "#1", 7},            {u"/bad.xml", 1, 0, 0, "#1", 7},  // its empty document is
      {u"/big.xml", 1, 0, 0, kFail, 8},
  };
  for (const Case& c : cases) {
    SetFileTimeOffsetForTesting(c.clockOffset);
    EXPECT_EQ(Read(info_.get(), c.uri, u"//Long", c.useCache, c.lifespan), c.result);
    EXPECT_EQ(address_->exchanges.size(), c.fetches);
  }
  address_->createRequestResult = static_cast<HRESULT>(0x80070005);
  EXPECT_EQ(Read(info_.get(), u"/other.xml", u"//a"), "#" + std::to_string(static_cast<HRESULT>(0x80070005)));
}

TEST_F(XmlProviders, ResourceTypesAndServicePaths) {
  std::string longUri = "/DevMgmt/" + std::string(300, 'p') + ".xml";
  documents_[u"/DevMgmt/DiscoveryTree.xml"] =
      "<T xmlns='urn:t' xmlns:dd='urn:dd'><R><dd:ResourceURI>" + longUri +
      "</dd:ResourceURI><dd:ResourceType>vexa:qvVexaProductConfigDyn</dd:ResourceType></R></T>";
  documents_[std::u16string(longUri.begin(), longUri.end())] =
      "<C xmlns:dd='urn:dd'><dd:SerialNumber>NV1</dd:SerialNumber></C>";
  documents_[u"/device"] = "<e xmlns:wprt='urn:w'><wprt:DeviceId>SN:1</wprt:DeviceId></e>";
  Ref<VEXAProviderImpl> vexa = Ref<VEXAProviderImpl>::Adopt(VEXAProviderImpl::Create(address_.get()));
  ASSERT_TRUE(vexa);
  EXPECT_EQ(Read(vexa.get(), u"vexa:qvVexaProductConfigDyn", u"//dd:SerialNumber"), "NV1");
  EXPECT_EQ(Read(vexa.get(), u"vexa:Unlisted", u"//dd:SerialNumber"), kFail);  // fetched as a path: 404
  EXPECT_EQ(address_->exchanges.size(), 4u);

  Ref<WSProviderImpl> ws = Ref<WSProviderImpl>::Adopt(WSProviderImpl::Create(address_.get()));
  ASSERT_TRUE(ws);
  for (auto [urn, path] : {std::pair{u"urn:a:b", u"/a"}, {u"urn:a", u""}, {nullptr, u""}}) {
    char16_t buffer[8] = {};
    uint32_t needed = 0;
    EXPECT_EQ(ws->GetServicePath(urn, buffer, 8, &needed), *path != u'\0' ? S_OK : E_FAIL);
    EXPECT_EQ(std::u16string(buffer), path);
  }
  EXPECT_EQ(Read(ws.get(), u"urn:a", u"//e"), kFail);
  EXPECT_EQ(address_->exchanges.size(), 5u);  // nothing sent for a URN without a path

  documents_[u"/DevMgmt/DiscoveryTree.xml"] = "<T xmlns:dd='urn:dd'/>";
  EXPECT_EQ(VEXAProviderImpl::Create(address_.get()), nullptr);
}

}  // namespace
