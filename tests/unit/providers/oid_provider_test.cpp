#include <gtest/gtest.h>

#include <memory>

#include "norvane/api.h"
#include "norvane/com.h"
#include "providers/oid_provider_impl.h"
#include "testlib/fake_host.h"
#include "support/ref.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeMib;

constexpr const char16_t* kDescr = u"1.3.6.1.2.1.25.3.2.1.3.1";
constexpr HRESULT kNotWritable = static_cast<HRESULT>(0x80070005);

struct Device {
  FakeAddress* address = FakeAddress::Create(u"192.0.2.7");
  std::shared_ptr<FakeMib> mib = std::make_shared<FakeMib>();
  Device() { address->mib = mib; }
  ~Device() { address->Dispose(); }
};

std::u16string Text(const Variant& v) {
  return v.Type() == VT_BSTR && v.Get().bstrVal != nullptr ? std::u16string(v.Get().bstrVal) : u"<not text>";
}

TEST(OIDProvider, DetectionAcceptsOnlyADescriptionWithText) {
  EXPECT_EQ(OIDProviderImpl::Create(nullptr), nullptr);
  {
    Device d;
    d.address->mib = nullptr;  // the device does not answer SNMP at all
    EXPECT_EQ(OIDProviderImpl::Create(d.address), nullptr);
  }
  {
    Device d;  // no description object; the exported factory detects the same way
    EXPECT_EQ(OIDProviderImpl::Create(d.address), nullptr);
    EXPECT_EQ(CreateOIDProvider(d.address), nullptr);
    d.mib->calls.pop_back();
    EXPECT_EQ(d.mib->calls, std::vector<std::u16string>{u"get 1.3.6.1.2.1.25.3.2.1.3.1"});
    EXPECT_EQ(d.mib->connectionsAlive, 0);
  }
  {
    Device d;
    d.mib->PutText(kDescr, u"");
    EXPECT_EQ(OIDProviderImpl::Create(d.address), nullptr);
    EXPECT_EQ(d.mib->connectionsAlive, 0);
  }
  // Bytes become text two to a character: a description the host could not
  // read as text still counts when it has a character's worth.
  for (std::string raw : {std::string("r\xE9seau", 6), std::string("\x01\x02"), std::string("A"), std::string()}) {
    Device d;
    Variant bytes = Variant::FromBytes(raw.data(), raw.size());
    d.mib->Put(kDescr, bytes.Get());
    auto provider = QxUtils::AdoptRef(OIDProviderImpl::Create(d.address));
    EXPECT_EQ(provider.get() != nullptr, raw.size() >= 2) << raw;
  }
  for (int32_t number : {7, 0, -3}) {
    Device d;  // a number is turned into text, and any number has some
    d.mib->PutInt(kDescr, number);
    auto provider = QxUtils::AdoptRef(OIDProviderImpl::Create(d.address));
    EXPECT_NE(provider.get(), nullptr) << number;
  }
}

TEST(OIDProvider, SemicolonWritesOneToTheSecondOidAndReportsTheWrite) {
  Device d;
  d.mib->PutText(kDescr, u"NX-4100");
  auto provider = QxUtils::AdoptRef(OIDProviderImpl::Create(d.address));
  ASSERT_NE(provider.get(), nullptr);
  d.mib->PutText(u"1.3.6.1.9.1", u"A");
  d.mib->calls.clear();

  Variant v;
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.9.1", v.Ptr()), S_OK);
  EXPECT_EQ(Text(v), u"A");
  v.Clear();
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.9.1;", v.Ptr()), S_OK);
  EXPECT_EQ(Text(v), u"A");
  EXPECT_EQ(d.mib->calls, (std::vector<std::u16string>{u"get 1.3.6.1.9.1", u"get 1.3.6.1.9.1"}));
  EXPECT_TRUE(d.mib->written.empty());

  // The read's answer stays in the value; the write's status is the result.
  d.mib->calls.clear();
  v.Clear();
  d.mib->setResult = kNotWritable;
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.9.1;1.3.6.1.9.2", v.Ptr()), kNotWritable);
  EXPECT_EQ(Text(v), u"A");
  EXPECT_EQ(d.mib->calls, (std::vector<std::u16string>{u"get 1.3.6.1.9.1", u"set 1.3.6.1.9.2"}));

  // A failed read does not stop the write, and a good write hides the failure.
  d.mib->setResult = S_OK;
  v.Clear();
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.9.99;1.3.6.1.9.2", v.Ptr()), S_OK);
  ASSERT_EQ(d.mib->written.count(u"1.3.6.1.9.2"), 1u);
  const VARIANT& written = d.mib->written[u"1.3.6.1.9.2"].Get();
  EXPECT_EQ(written.vt, VT_INT);
  EXPECT_EQ(written.intVal, 1);
  v.Clear();
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.9.99", v.Ptr()), E_FAIL);
}

TEST(OIDProvider, ArgumentChecksNeverReachTheConnection) {
  Device d;
  d.mib->PutText(kDescr, u"NX-4100");
  auto provider = QxUtils::AdoptRef(OIDProviderImpl::Create(d.address));
  ASSERT_NE(provider.get(), nullptr);
  d.mib->calls.clear();
  Variant v;
  char16_t next[32];
  const char16_t* oids[] = {kDescr};
  VARIANT values[1];
  VariantInit(&values[0]);
  EXPECT_EQ(provider->GetValue(nullptr, v.Ptr()), E_FAIL);
  EXPECT_EQ(provider->GetValue(kDescr, nullptr), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(kDescr, next, 0, v.Ptr()), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(nullptr, next, 32, v.Ptr()), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(kDescr, nullptr, 32, v.Ptr()), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(kDescr, next, 32, nullptr), E_FAIL);
  EXPECT_EQ(provider->GetMultipleValues(oids, values, 0), E_FAIL);
  EXPECT_EQ(provider->GetMultipleValues(nullptr, values, 1), E_FAIL);
  EXPECT_EQ(provider->GetMultipleValues(oids, nullptr, 1), E_FAIL);
  EXPECT_TRUE(d.mib->calls.empty());
}

TEST(OIDProvider, ForwardsGetNextAndMultipleGetUnchanged) {
  Device d;
  d.mib->PutText(kDescr, u"NX-4100");
  d.mib->PutInt(u"1.3.6.1.2.1.25.3.2.1.5.1", 2);
  auto provider = QxUtils::AdoptRef(OIDProviderImpl::Create(d.address));
  ASSERT_NE(provider.get(), nullptr);

  Variant v;
  char16_t small[4];
  EXPECT_EQ(provider->GetNextOidAndValue(kDescr, small, 4, v.Ptr()), E_OUTOFMEMORY);
  char16_t next[32];
  ASSERT_EQ(provider->GetNextOidAndValue(kDescr, next, 32, v.Ptr()), S_OK);
  EXPECT_EQ(std::u16string(next), u"1.3.6.1.2.1.25.3.2.1.5.1");
  EXPECT_EQ(v.Get().vt, VT_I4);
  EXPECT_EQ(provider->GetNextOidAndValue(u"1.3.6.1.2.1.25.3.2.1.5.1", next, 32, v.Ptr()), E_FAIL);

  const char16_t* oids[] = {u"1.3.6.1.2.1.25.3.2.1.5.1", kDescr};
  VARIANT values[2];
  VariantInit(&values[0]);
  VariantInit(&values[1]);
  d.mib->multiResult = static_cast<HRESULT>(0x800705B4);
  EXPECT_EQ(provider->GetMultipleValues(oids, values, 2), static_cast<HRESULT>(0x800705B4));
  d.mib->multiResult = S_OK;
  ASSERT_EQ(provider->GetMultipleValues(oids, values, 2), S_OK);
  EXPECT_EQ(values[0].lVal, 2);
  EXPECT_EQ(std::u16string(values[1].bstrVal), u"NX-4100");
  VariantClear(&values[0]);
  VariantClear(&values[1]);
}

}  // namespace
