// Single get and set requests against the bench's snmpd and simulator: one row per
// outcome, including rows where two failures apply and the later step's code wins.
#include <gtest/gtest.h>

#include "norvane/host.h"
#include "norvane/norvane.h"

namespace {

using namespace Norvane;

#define OID_MAP(items) u"<DataMaps><OIDDataMap>" items u"</OIDDataMap></DataMaps>"
#define WS_MAP(items) u"<DataMaps><XMLDataMap Protocol='WS'>" items u"</XMLDataMap></DataMaps>"
const char16_t* kModel = OID_MAP(u"<DataItem Name='Model' OID='1.3.6.1.2.1.25.3.2.1.3.1'/>");
const char16_t* kTwoItems =
    OID_MAP(u"<DataItem Name='B' OID='1.3.6.1.2.1.43.5.1.1.17.1'/><DataItem Name='A' OID='x'/>");
const char16_t* kSerial = OID_MAP(u"<DataItem Name='Serial' OID='1.3.6.1.2.1.43.5.1.1.17.1'/>");
const char16_t* kReset = OID_MAP(u"<DataItem Name='Reset' OID='1.3.6.1.2.1.43.5.1.1.3.1'/>");
const char16_t* kNoName = OID_MAP(u"<DataItem Name='' OID='1.3.6.1.2.1.25.3.2.1.3.1'/>");
const char16_t* kUnknown = OID_MAP(u"<DataItem Name='X' OID='1.3.6.1.2.1.43.5.1.1.17.9'/>");
const char16_t* kStaticOnly = OID_MAP(u"<StaticDataItem Name='Vendor'>Norvane</StaticDataItem>");
#define WS_ITEM(xpath) u"<DataItem Name='Id' URI='urn:qv:imaging:con:service:device:DeviceService' XPath='" xpath u"'/>"
const char16_t* kWsLocation = WS_MAP(WS_ITEM(u"//wprt:PrinterLocation"));
const char16_t* kWsStatic = WS_MAP(u"<StaticDataItem Name='Id'>x</StaticDataItem>");

// printer: the bench's agent and simulator; silent: nothing listens; stranger: a community the
// agent does not know; unnamed: a host name that does not resolve, so no SNMP connection is made.
enum class Device { kPrinter, kSilent, kStranger, kUnnamed };
enum Value { kEmpty = 0, kPowerCycle = 4, kNvramReset = 5, kText = -1 };  // integers: prtGeneralReset values

// read: the value read, or for a write the value read back afterwards.
struct Row {
  const char* name;
  bool set;
  Device device;
  const char16_t* document;
  Value value;
  HRESULT expected;
  const char* read = nullptr;
};

const Row kRows[] = {
    {"ReadsLastItemInKeyOrder", false, Device::kPrinter, kTwoItems, kEmpty, S_OK, "NV42A17Q9X"},
    {"WritesInteger", true, Device::kPrinter, kReset, kPowerCycle, S_OK, "4"},
    {"WritesIntegerThroughGet", false, Device::kPrinter, kReset, kNvramReset, S_OK, "5"},
    {"IppDataMap102", false, Device::kPrinter, u"<DataMaps><IPPDataMap/></DataMaps>", kEmpty, 102},
    {"EmptyDataMaps102", false, Device::kPrinter, u"<DataMaps/>", kEmpty, 102},
    {"NoDataMaps103", false, Device::kPrinter, u"<DataMap><OIDDataMap/></DataMap>", kEmpty, 103},
    {"EmptySet108", true, Device::kPrinter, kReset, kEmpty, 108},
    {"NotXml109", false, Device::kPrinter, u"<DataMaps><OIDDataMap>", kEmpty, 109},
    {"ReadsWebServicesValue", false, Device::kPrinter, kWsLocation, kEmpty, S_OK, "Level 2, Print Room"},
    {"SetOnWebServices110BeforeProvider", true, Device::kSilent, kWsLocation, kPowerCycle, 110},
    {"NoXmlItem111OverNoProvider116", false, Device::kSilent, kWsStatic, kEmpty, 111},
    {"NothingAtXPath113", false, Device::kPrinter, WS_MAP(WS_ITEM(u"//wprt:SerialNumber")), kEmpty, 113},
    {"WholeDescriptionTooLong113", false, Device::kPrinter, WS_MAP(WS_ITEM(u"//wprt:PrinterElements")), kEmpty, 113},
    {"EmptyItemName112", false, Device::kPrinter, kNoName, kEmpty, 112},
    {"NoOidItem114OverNoName112", false, Device::kPrinter, kStaticOnly, kEmpty, 114},
    {"ItemWithoutOid114", false, Device::kPrinter, OID_MAP(u"<DataItem Name='Model'/>"), kEmpty, 114},
    {"NoOidItem114OverNoProvider117", false, Device::kStranger, kStaticOnly, kEmpty, 114},
    {"UnknownObject115", false, Device::kPrinter, kUnknown, kEmpty, 115},
    {"NoWebServices116", false, Device::kSilent, kWsLocation, kEmpty, 116},
    {"NoSnmp117", false, Device::kStranger, kModel, kEmpty, 117},
    {"ReadOnlyObject118", true, Device::kPrinter, kSerial, kPowerCycle, 118},
    {"TextValue119", true, Device::kPrinter, kReset, kText, 119},
    {"TextValueWithoutConnection", true, Device::kUnnamed, kReset, kText, S_FALSE},
};

std::string Text(const VARIANT& v) {
  if (v.vt == VT_BSTR) return std::string(v.bstrVal, v.bstrVal + SysStringLen(v.bstrVal));
  return v.vt == VT_I4 ? std::to_string(v.lVal) : "<vt " + std::to_string(v.vt) + ">";
}

class SingleRequest : public ::testing::TestWithParam<Row> {};

TEST_P(SingleRequest, ReturnsTheCodeOfTheLastFailedStep) {
  if (std::getenv("NORVANE_BENCH") == nullptr) GTEST_SKIP() << "needs the integration bench";
  const Row& row = GetParam();
  std::string host = row.device == Device::kUnnamed
                         ? "printer.invalid"
                         : std::getenv(row.device == Device::kSilent ? "NORVANE_BENCH_IPV4" : "NORVANE_PRINTER_HOST");
  QxNetAddress* address = CreateNetAddress(std::u16string(host.begin(), host.end()).c_str());
  // A device that does not answer costs one short wait, not the default retries.
  if (row.device != Device::kPrinter) NetAddressSetSnmpTimeout(address, 300, 0);
  if (row.device == Device::kStranger) NetAddressSetSnmpCommunity(address, u"not-the-community");
  VARIANT value{};  // empty
  if (row.value > 0) value.vt = VT_INT, value.intVal = row.value;
  if (row.value == kText) value.vt = VT_BSTR, value.bstrVal = SysAllocString(u"4");
  auto call = row.set ? SetValueFromSingleRequest : GetValueFromSingleRequest;
  EXPECT_EQ(call(address, row.document, &value), row.expected);
  if (row.read != nullptr && value.vt == VT_INT) {  // a write: read it back
    VariantClear(&value);
    EXPECT_EQ(GetValueFromSingleRequest(address, row.document, &value), S_OK);
  }
  EXPECT_TRUE(row.read == nullptr || Text(value) == row.read) << Text(value);
  VariantClear(&value);
  address->Dispose();
}

INSTANTIATE_TEST_SUITE_P(Bench, SingleRequest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
