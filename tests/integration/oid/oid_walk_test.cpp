// Long walks of the bench agent's big supplies table through a collection: the
// values are the same whatever the SNMP version, while GETBULK read-ahead on
// v2c cuts the requests the agent receives by its row count.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "norvane/api.h"
#include "norvane/host.h"
#include "norvane/norvane.h"

namespace {

using namespace Norvane;

std::u16string Widen(const std::string& text) { return std::u16string(text.begin(), text.end()); }

std::string Text(const VARIANT& v) {
  if (v.vt == VT_BSTR && v.bstrVal != nullptr) {
    std::u16string wide(v.bstrVal);
    return std::string(wide.begin(), wide.end());
  }
  if (v.vt == VT_I4) return std::to_string(v.lVal);
  return "<vt " + std::to_string(v.vt) + ">";
}

std::string Read(DataCollection* collection, const std::string& key) {
  VARIANT v;
  VariantInit(&v);
  std::string text = collection->GetValue(Widen(key).c_str(), &v) == S_OK ? Text(v) : "<error>";
  VariantClear(&v);
  return text;
}

struct Walked {
  std::vector<std::string> descriptions;  // count walk
  std::vector<std::string> levels;        // until-end walk, the table's rows only
  std::string group;
  long requests = 0;  // packets the agent received for the three reads
};

class OidWalk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("NORVANE_BENCH") == nullptr) GTEST_SKIP() << "needs the integration bench";
    const char* rows = std::getenv("NORVANE_SNMP_BIG_TABLE_ROWS");
    ASSERT_NE(rows, nullptr);
    rows_ = std::atoi(rows);
    ASSERT_GE(rows_, 500);
  }

  // snmpInPkts.0: every message the agent took in.
  static long AgentPackets(QxNetAddress* address) {
    OIDProvider* provider = CreateOIDProvider(address);
    VARIANT v;
    VariantInit(&v);
    long packets = provider->GetValue(u"1.3.6.1.2.1.11.1.0", &v) == S_OK ? std::stol(Text(v)) : -1;
    VariantClear(&v);
    provider->Dispose();
    return packets;
  }

  Walked Walk(uint32_t version) const {
    Walked out;
    QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
    EXPECT_EQ(NetAddressSetSnmpVersion(address, version), S_OK);
    std::string rows = std::to_string(rows_);
    std::u16string document = Widen(
        "<DataMaps><OIDDataMap>"
        "<NextDataItem Name=\"Desc\" OID=\"1.3.6.1.2.1.43.11.1.1.6.2\" Count=\"" + rows + "\"/>"
        "<NextDataItem Name=\"Level\" OID=\"1.3.6.1.2.1.43.11.1.1.9.2\" UntilEnd=\"true\"/>"
        "<DataItem Name=\"Black\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" GroupID=\"g\"/>"
        "<DataItem Name=\"Magenta\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.2\" GroupID=\"g\"/>"
        "<DataItem Name=\"Last\" OID=\"1.3.6.1.2.1.43.11.1.1.6.2." + rows + "\" GroupID=\"g\"/>"
        "</OIDDataMap></DataMaps>");
    DataCollection* collection = nullptr;
    long before = AgentPackets(address);
    EXPECT_EQ(CreateDataCollectionFromXML(address, document.c_str(), &collection, nullptr), S_OK);
    if (collection != nullptr) {
      EXPECT_EQ(Read(collection, "Desc"), "Desc.###");
      // Ends where the agent's objects end: the answer is that last failure.
      Read(collection, "Level");
      out.group = Read(collection, "Last");
      for (int i = 1; i <= rows_; ++i) {
        char sequence[16];
        std::snprintf(sequence, sizeof sequence, ".%03d", i);
        out.descriptions.push_back(Read(collection, "Desc" + std::string(sequence)));
        out.levels.push_back(Read(collection, "Level" + std::string(sequence)));
      }
      collection->Dispose();
    }
    out.requests = AgentPackets(address) - before - 1;
    address->Dispose();
    return out;
  }

  int rows_ = 0;
};

TEST_F(OidWalk, BulkReadAheadKeepsTheValuesAndCutsTheRequests) {
  Walked plain = Walk(NORVANE_SNMP_VERSION_1);
  Walked bulk = Walk(NORVANE_SNMP_VERSION_2C);
  ASSERT_EQ(plain.descriptions.size(), static_cast<size_t>(rows_));
  for (int i = 1; i <= rows_; ++i) {
    ASSERT_EQ(plain.descriptions[i - 1], "Supply " + std::to_string(i)) << i;
    ASSERT_EQ(plain.levels[i - 1], std::to_string(i % 101)) << i;
  }
  EXPECT_EQ(plain.group, "62,Supply " + std::to_string(rows_) + ",9");  // items in name order
  EXPECT_EQ(bulk.descriptions, plain.descriptions);
  EXPECT_EQ(bulk.levels, plain.levels);
  EXPECT_EQ(bulk.group, plain.group);
  // One get-next per row without read-ahead; one GETBULK per 50 rows with it.
  EXPECT_GE(plain.requests, 2L * rows_);
  EXPECT_LE(bulk.requests * 20, plain.requests) << bulk.requests << " against " << plain.requests;
}

}  // namespace
