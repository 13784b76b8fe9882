#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "engine/oid_data_mapper.h"
#include "providers/oid_provider_impl.h"
#include "testlib/fake_host.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeMib;

constexpr const char16_t* kDescr = u"1.3.6.1.2.1.25.3.2.1.3.1";

std::u16string Text(const VARIANT& v) {
  if (v.vt == VT_BSTR) return v.bstrVal == nullptr ? u"" : std::u16string(v.bstrVal);
  if (v.vt == VT_I4) {
    std::string digits = std::to_string(v.lVal);
    return u"#" + std::u16string(digits.begin(), digits.end());
  }
  return u"<vt " + std::u16string(1, static_cast<char16_t>(u'0' + v.vt % 10)) + u">";
}

// A device with an SNMP agent, an OID data map and the mapper over both. Items
// are added before the first request; the mapper owns its own references.
class OidMapperTest : public ::testing::Test {
 protected:
  OidMapperTest() {
    address_->mib = mib_;
    mib_->PutText(kDescr, u"NX-4100");
  }
  ~OidMapperTest() override {
    if (mapper_ != nullptr) mapper_->Dispose();
    map_->Dispose();
    address_->Dispose();
  }

  void Add(NvoDataItem* item) { map_->AddDataItemSpec(item->GetName(), item); }
  void AddSingle(const char16_t* name, const char16_t* oid, bool transient = false, const char16_t* group = nullptr,
                 uint64_t lifespan = 0) {
    Add(OIDDataItemSpec::CreateOIDDataItemSpec(name, oid, group, transient, nullptr, lifespan, nullptr));
  }
  void AddNext(const char16_t* name, const char16_t* oid, int32_t count, bool untilEnd, bool transient = false) {
    Add(NextOIDDataItemSpec::CreateNextOidDataItemSpec(name, oid, nullptr, transient, nullptr, 0, nullptr, untilEnd,
                                                       count));
  }
  // Built in memory the N counter starts at 0 whatever `n` says.
  void AddRows(const char16_t* name, const char16_t* oid, int32_t count, bool untilEnd, bool transient,
               const char16_t* n) {
    Add(OIDGetDataItemsSpec::CreateOIDGetDataItemsSpec(name, oid, nullptr, transient, nullptr, 0, nullptr, untilEnd,
                                                       count, n));
  }

  OIDDataMapper* Mapper() {
    if (mapper_ == nullptr) {
      OIDProviderImpl* provider = OIDProviderImpl::Create(address_);
      EXPECT_NE(provider, nullptr);
      mapper_ = OIDDataMapper::Create(provider, map_);
      provider->Dispose();
      mib_->calls.clear();
    }
    return mapper_;
  }

  HRESULT Get(const char16_t* name, std::u16string* text) {
    Variant v;
    HRESULT hr = Mapper()->GetValue(name, v.Ptr());
    *text = v.Type() == VT_EMPTY ? u"<untouched>" : Text(v.Get());
    return hr;
  }

  std::vector<std::u16string> Keys() {
    std::vector<std::u16string> keys;
    for (const auto& entry : Mapper()->GetValueTable()) keys.push_back(entry.first);
    return keys;
  }
  std::u16string Stored(const char16_t* key) {
    auto it = Mapper()->GetValueTable().find(std::u16string_view(key));
    return it == Mapper()->GetValueTable().end() ? u"<absent>" : Text(it->second.value.Get());
  }
  size_t CallsStartingWith(std::u16string_view what) {
    return static_cast<size_t>(std::count_if(mib_->calls.begin(), mib_->calls.end(),
                                             [&](const std::u16string& c) { return c.starts_with(what); }));
  }

  FakeAddress* address_ = FakeAddress::Create(u"192.0.2.9");
  std::shared_ptr<FakeMib> mib_ = std::make_shared<FakeMib>();
  DataMapSpec* map_ = DataMapSpec::CreateDataMapSpec(DataMapTypeOID);
  OIDDataMapper* mapper_ = nullptr;
};

TEST_F(OidMapperTest, SingleObjectIsConvertedStoredAndThenAnsweredFromTheTable) {
  auto* status = OIDDataItemSpec::CreateOIDDataItemSpec(u"Status", u"1.3.5.1", nullptr, false, nullptr, 600, nullptr);
  status->AddConversion(u"2", nullptr, u"running");
  Add(status);
  AddSingle(u"Live", u"1.3.5.2", /*transient=*/true);
  AddSingle(u"Gone", u"1.3.5.3");
  mib_->PutInt(u"1.3.5.1", 2);
  mib_->PutText(u"1.3.5.2", u"busy");

  std::u16string text;
  EXPECT_EQ(Get(u"Status", &text), S_OK);
  EXPECT_EQ(text, u"running");
  EXPECT_EQ(Get(u"Status", &text), S_OK);
  EXPECT_EQ(mib_->calls, std::vector<std::u16string>{u"get 1.3.5.1"});
  EXPECT_EQ(Mapper()->GetValueTable().at(u"Status").lifespan, 600u);

  // The request's prefix is part of the key the value is kept under.
  EXPECT_EQ(Get(u"dev:Status", &text), S_OK);
  EXPECT_EQ(Stored(u"dev:Status"), u"running");

  EXPECT_EQ(Get(u"Live", &text), S_OK);
  EXPECT_EQ(Get(u"Live", &text), S_OK);
  EXPECT_EQ(text, u"busy");
  EXPECT_EQ(CallsStartingWith(u"get 1.3.5.2"), 2u);
  EXPECT_EQ(Stored(u"Live"), u"<absent>");

  EXPECT_EQ(Get(u"Gone", &text), E_FAIL);
  EXPECT_EQ(text, u"<untouched>");
  EXPECT_EQ(Stored(u"Gone"), u"<absent>");

  mib_->calls.clear();
  EXPECT_EQ(Get(u"Unknown", &text), E_FAIL);
  EXPECT_TRUE(mib_->calls.empty());
  EXPECT_EQ(Mapper()->GetValue(nullptr, nullptr), E_FAIL);
  EXPECT_EQ(Mapper()->GetDataMapName(), u"OIDDataMap");
}

TEST_F(OidMapperTest, GroupIsReadInOneRequestAndJoinedInDataMapOrder) {
  // Key order (a, m, x) differs from OID order: the join follows the data map.
  AddSingle(u"x", u"1.3.5.1", false, u"g");
  AddSingle(u"m", u"1.3.5.2", false, u"g");
  AddSingle(u"a", u"1.3.5.3", false, u"g");
  AddSingle(u"other", u"1.3.5.4", false, u"G");  // groups compare exactly
  mib_->PutInt(u"1.3.5.1", 5);
  mib_->PutText(u"1.3.5.2", u"A");
  mib_->PutText(u"1.3.5.3", u"B");
  mib_->PutText(u"1.3.5.4", u"other");

  std::u16string text;
  EXPECT_EQ(Get(u"m", &text), S_OK);
  EXPECT_EQ(text, u"B,A,5");
  EXPECT_EQ(mib_->calls, std::vector<std::u16string>{u"multi 3"});
  EXPECT_EQ(Stored(u"m"), u"B,A,5");

  // A member the agent lacks contributes empty text.
  mib_->objects.erase(u"1.3.5.2");
  EXPECT_EQ(Get(u"x", &text), S_OK);
  EXPECT_EQ(text, u"B,,5");

  mib_->multiResult = static_cast<HRESULT>(0x800705B4);
  EXPECT_EQ(Get(u"a", &text), E_FAIL);
  EXPECT_EQ(text, u"<untouched>");
}

TEST_F(OidMapperTest, CountWalkFillsTheWholeTableAndAnswersTheMarker) {
  AddNext(u"Tray", u"1.3.7.1", 3, false);
  mib_->PutText(u"1.3.7.1", u"base");
  mib_->PutText(u"1.3.7.1.1", u"one");
  mib_->PutText(u"1.3.7.1.2", u"two");
  mib_->PutText(u"1.3.7.1.3", u"three");
  mib_->PutText(u"1.3.7.1.4", u"four");

  std::u16string text;
  EXPECT_EQ(Get(u"Tray", &text), S_OK);
  EXPECT_EQ(text, u"Tray.###");
  EXPECT_EQ(Keys(), (std::vector<std::u16string>{u"Tray", u"Tray.000", u"Tray.001", u"Tray.002", u"Tray.003"}));
  EXPECT_EQ(Stored(u"Tray.000"), u"base");
  EXPECT_EQ(Stored(u"Tray.003"), u"three");
  EXPECT_EQ(mib_->calls, (std::vector<std::u16string>{u"get 1.3.7.1", u"next 1.3.7.1", u"next 1.3.7.1.1",
                                                      u"next 1.3.7.1.2"}));
  mib_->calls.clear();
  EXPECT_EQ(Get(u"Tray.002", &text), S_OK);  // from the table
  EXPECT_EQ(text, u"two");
  EXPECT_TRUE(mib_->calls.empty());
}

TEST_F(OidMapperTest, CountWalkAnswersOneElementAndRefusesIndexesBeyondCount) {
  AddNext(u"Tray", u"1.3.7.1", 3, false);
  AddNext(u"Peek", u"1.3.7.1", 3, false, /*transient=*/true);
  mib_->PutText(u"1.3.7.1", u"base");
  mib_->PutText(u"1.3.7.1.1", u"one");
  mib_->PutText(u"1.3.7.1.2", u"two");
  mib_->PutText(u"1.3.7.1.3", u"three");

  std::u16string text;
  EXPECT_EQ(Get(u"Tray.004", &text), E_FAIL);
  EXPECT_EQ(text, u"<untouched>");
  EXPECT_EQ(CallsStartingWith(u"next"), 0u);

  EXPECT_EQ(Get(u"dev:Tray.002", &text), S_OK);
  EXPECT_EQ(text, u"two");
  EXPECT_EQ(Stored(u"dev:Tray"), u"dev:Tray.###");
  EXPECT_EQ(Stored(u"dev:Tray.003"), u"three");  // the walk goes on to fill the table

  mib_->calls.clear();
  EXPECT_EQ(Get(u"Peek.000", &text), S_OK);
  EXPECT_EQ(text, u"base");
  EXPECT_EQ(mib_->calls, std::vector<std::u16string>{u"get 1.3.7.1"});

  // A transient walk stops at the element asked for and keeps nothing.
  mib_->calls.clear();
  EXPECT_EQ(Get(u"Peek.002", &text), S_OK);
  EXPECT_EQ(text, u"two");
  EXPECT_EQ(CallsStartingWith(u"next"), 2u);
  for (const auto& key : Keys()) EXPECT_FALSE(key.starts_with(u"Peek")) << std::string(key.begin(), key.end());

  // An index is the decimal value of its text: what follows the digits is
  // ignored, no digits is 0, a negative index names no element; the marker is
  // stored first in every case.
  const struct {
    const char16_t* item;
    const char16_t* name;
    HRESULT status;
    const char16_t* answer;
  } indexes[] = {{u"A", u"A.2a", S_OK, u"two"}, {u"B", u"B.x1", S_OK, u"base"}, {u"C", u"C.-1", E_FAIL, u"<untouched>"}};
  for (const auto& c : indexes) {
    AddNext(c.item, u"1.3.7.1", 3, false);
    EXPECT_EQ(Get(c.name, &text), c.status) << std::string(c.name, c.name + 4);
    EXPECT_EQ(text, c.answer);
    EXPECT_EQ(Stored(c.item), std::u16string(c.item) + u".###");
  }
}

TEST_F(OidMapperTest, TheBaseOfAWalkOverATableColumnAnswersEmptyAndTheRowsAreRead) {
  AddNext(u"Column", u"1.3.7.2", 2, false);
  mib_->PutText(u"1.3.7.2.1", u"one");
  mib_->PutText(u"1.3.7.2.2", u"two");
  std::u16string text;
  EXPECT_EQ(Get(u"Column.000", &text), S_OK);
  EXPECT_EQ(text, u"<untouched>");
  EXPECT_EQ(Stored(u"Column.000"), u"<absent>");
  EXPECT_EQ(Stored(u"Column.002"), u"two");
}

TEST_F(OidMapperTest, GetNextRetriesWithLargerBuffersUpToFiveTimes) {
  // The first buffer holds the base OID plus 5; each retry adds 2.
  const std::u16string base = u"1.3.7";
  auto oidOfLength = [](size_t length) { return u"1.3.7." + std::u16string(length - 6, u'1'); };
  AddNext(u"Fits", base.c_str(), 1, false);
  mib_->PutText(oidOfLength(base.size() + 5 + 10 - 1), u"long");
  std::u16string text;
  EXPECT_EQ(Get(u"Fits.001", &text), S_OK);
  EXPECT_EQ(text, u"long");
  EXPECT_EQ(CallsStartingWith(u"next 1.3.7"), 6u);

  mib_->objects.clear();
  mib_->PutText(kDescr, u"NX-4100");
  mib_->PutText(oidOfLength(base.size() + 5 + 12 - 1), u"too long");
  AddNext(u"TooLong", base.c_str(), 1, false);
  mib_->calls.clear();
  EXPECT_EQ(Get(u"TooLong.001", &text), E_FAIL);
  EXPECT_EQ(text, u"<untouched>");
  EXPECT_EQ(CallsStartingWith(u"next 1.3.7"), 6u);
  EXPECT_EQ(Stored(u"TooLong.001"), u"<absent>");
}

TEST_F(OidMapperTest, UntilEndWalkStopsAtARepeatedOidOrTheEndOfTheObjects) {
  AddNext(u"Loop", u"1.3.8", 0, true);
  mib_->PutText(u"1.3.8.1", u"a");
  mib_->PutText(u"1.3.8.2", u"b");
  mib_->nextJumps[u"1.3.8.2"] = u"1.3.8.2";

  std::u16string text;
  EXPECT_EQ(Get(u"Loop", &text), S_OK);  // the repetition is not a failure
  EXPECT_EQ(text, u"Loop.###");
  EXPECT_EQ(Stored(u"Loop.001"), u"a");
  EXPECT_EQ(Stored(u"Loop.002"), u"b");
  EXPECT_EQ(Stored(u"Loop.003"), u"<absent>");
  EXPECT_EQ(CallsStartingWith(u"next"), 3u);

  // Without the loop the agent runs out of objects: that step's failure is the
  // result, and an index past the last element is not found.
  mib_->nextJumps.clear();
  AddNext(u"Run", u"1.3.8", 0, true);
  EXPECT_EQ(Get(u"Run", &text), E_FAIL);
  EXPECT_EQ(text, u"Run.###");
  EXPECT_EQ(Stored(u"Run.002"), u"b");
  AddNext(u"Far", u"1.3.8", 0, true);
  EXPECT_EQ(Get(u"Far.005", &text), E_FAIL);
  EXPECT_EQ(text, u"<untouched>");
  EXPECT_EQ(Stored(u"Far.002"), u"b");
}

TEST_F(OidMapperTest, GeneratedRowsGoOnFromWhereTheItemsLastWalkStopped) {
  AddRows(u"Rows", u"1.3.9.N.7", 3, false, false, u"1");
  AddRows(u"Quick", u"1.3.9.N.7", 3, false, true, u"1");
  for (int i = 0; i <= 9; ++i) {
    std::string digit = std::to_string(i);
    mib_->PutText(u"1.3.9." + std::u16string(digit.begin(), digit.end()) + u".7",
                  u"row" + std::u16string(digit.begin(), digit.end()));
  }

  std::u16string text;
  EXPECT_EQ(Get(u"Rows.002", &text), S_OK);
  EXPECT_EQ(text, u"row2");
  EXPECT_EQ(Keys(), (std::vector<std::u16string>{u"Rows", u"Rows.000", u"Rows.001", u"Rows.002", u"Rows.003"}));
  EXPECT_EQ(Stored(u"Rows.000"), u"row0");
  EXPECT_EQ(Stored(u"Rows.003"), u"row3");

  // Transient: nothing is kept, so every request walks again, and the item's
  // OID counter goes on from the row after the last one it generated.
  EXPECT_EQ(Get(u"Quick.001", &text), S_OK);
  EXPECT_EQ(text, u"row1");
  EXPECT_EQ(Get(u"Quick.001", &text), S_OK);
  EXPECT_EQ(text, u"row4");
  EXPECT_EQ(Get(u"Quick.004", &text), E_FAIL);
}

TEST_F(OidMapperTest, GeneratedRowsUntilEndStopAtAFailedReadOrARepeatedOid) {
  AddRows(u"Rows", u"1.3.9.N", 0, true, false, u"1");
  AddRows(u"Same", u"1.3.9.1", 0, true, false, u"1");  // no N: every OID is the same
  AddRows(u"NoN", u"1.3.9.N", 3, false, false, nullptr);
  mib_->PutText(u"1.3.9.0", u"r0");
  mib_->PutText(u"1.3.9.1", u"r1");
  mib_->PutText(u"1.3.9.2", u"r2");

  std::u16string text;
  EXPECT_EQ(Get(u"Rows", &text), E_FAIL);
  EXPECT_EQ(text, u"Rows.###");
  EXPECT_EQ(Stored(u"Rows.000"), u"r0");
  EXPECT_EQ(Stored(u"Rows.002"), u"r2");
  EXPECT_EQ(Stored(u"Rows.003"), u"<absent>");

  mib_->calls.clear();
  EXPECT_EQ(Get(u"Same", &text), S_OK);
  EXPECT_EQ(Stored(u"Same.000"), u"r1");
  EXPECT_EQ(Stored(u"Same.001"), u"<absent>");
  EXPECT_EQ(mib_->calls.size(), 2u);

  // Without an N the item names no base OID: nothing is read or stored.
  mib_->calls.clear();
  EXPECT_EQ(Get(u"NoN", &text), E_FAIL);
  EXPECT_TRUE(mib_->calls.empty());
  EXPECT_EQ(Stored(u"NoN"), u"<absent>");
}

TEST(OidMapperKeys, SequencesWidenPastThreeDigitsAndAKeyNeedsAName) {
  EXPECT_EQ(OIDDataMapper::GetSequenceString(1000), u"1000");
  std::u16string key;
  std::u16string_view seq = u"001";
  EXPECT_EQ(OIDDataMapper::ConstructKey(u"dev", u"", &seq, &key), E_FAIL);
}

}  // namespace
