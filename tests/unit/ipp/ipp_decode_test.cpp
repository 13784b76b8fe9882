// Decoding hand-built responses: the value notation, member lookups,
// collection queries, the job values and the collection dump.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"
#include "support/ref.h"
#include "testlib/fake_host.h"
#include "testlib/temp_dir.h"

namespace {

using namespace IppTest;
using Norvane::IPPOperations;
using Value = OwnedVariant;

std::string Collection(const std::string& name, const std::string& members) {
  return Attr(0x34, name, "") + members + Attr(0x37, "", "");
}
std::string Member(const std::string& name, int tag, const std::string& value) {
  return Attr(0x4A, "", name) + Attr(tag, "", value);
}

// Two media-col-ready entries, each with a nested media-size, between other
// collections so that counting starts at the right record.
std::string MediaResponse() {
  auto entry = [](int x, const char* type, const char* source) {
    return Attr(0x4A, "", "media-size") +
           Collection("", Member("x-dimension", 0x21, Be32(x)) + Member("y-dimension", 0x21, Be32(29700))) +
           Member("media-type", 0x44, type) + Member("media-source", 0x44, source);
  };
  return ResponseStart() + Collection("media-col-default", entry(1, "auto", "auto")) +
         Collection("media-col-ready", entry(21000, "plain", "tray-1")) +
         Collection("", entry(10160, "photo", "tray-2")) + Attr(0x44, "media-ready", "iso_a4_210x297mm") + B({0x03});
}

// A decoded value as the table shows it: text, or the raw bytes in hex.
std::string Shown(const VARIANT& v) { return v.vt == (VT_ARRAY | VT_UI1) ? HexDump(ByteArray(v)) : Text(v); }

// One lookup in a decoded response per row: the value notation, the length
// rules of the fixed-size and language tags, statuses and versions.
TEST(IppDecodeValues, LookupsInDecodedResponses) {
  const std::string plain = ResponseStart() + Attr(0x23, "printer-state", Be32(3)) +
                            Attr(0x44, "printer-state-reasons", "none") + Attr(0x44, "", "media-low") +
                            Attr(0x21, "marker-levels", Be32(-2)) + Attr(0x22, "color-supported", B({0x01})) +
                            Attr(0x42, "printer-name", "\xD0\xA2\xD0\xA1\xD0\x94") + B({0x03});
  const std::string alerts = ResponseStart() + Attr(0x30, "printer-alert", "code=1;severity=2") +
                             Attr(0x30, "", "code=other;severity=warning") + B({0x03});
  const std::string language = Be16(2) + "en" + Be16(4) + "text";
  const std::string failed = ResponseStart(0x0406) + Attr(0x23, "printer-state", Be32(3)) + B({0x03});
  const std::string state3 = Attr(0x23, "printer-state", Be32(3)) + B({0x03});
  const std::string r1 = Be32(600) + Be32(600) + B({3}), r2 = Be32(1200) + Be32(600) + B({3});
  const std::string resolutions = ResponseStart() + Attr(0x32, "printer-resolution-supported", r1) +
                                  Attr(0x32, "", r2) + Attr(0x33, "copies-supported", Be32(1) + Be32(99)) + B({0x03});
  // Under the host's field compatibility an IPP/1.1 answer is read, and a
  // language-tagged text is kept only when both inner lengths fill the value.
  auto tagged = [](const std::string& value) { return ResponseStart(0, 1, 1) + Attr(0x36, "name", value) + B({0x03}); };
  struct Case {
    std::string body;
    const char* key;
    std::string expected;  // "<vt 0>": no value
    HRESULT hr;
    bool fieldCompatible = false;
  } cases[] = {
      {plain, "printer-state-reasons", "none,media-low", S_OK},
      {plain, "marker-levels", "-2", S_OK},
      {plain, "color-supported", "1", S_OK},
      {plain, "printer-name", "\xD0\xA2\xD0\xA1\xD0\x94", S_OK},  // UTF-8 in, UTF-16 out
      {plain, "printer-state,printer-state-reasons", "<vt 0>", S_OK},
      // Octet-string sets (members found by name: in the captures): only the
      // first set's markers are tidied away, and an absent member fails.
      {alerts, "printer-alert", "code,1,severity,2,IPP_Set_Start,code,other,severity,warning,IPP_Set_End", S_OK},
      {alerts, "printer-alert.group", "<vt 0>", E_FAIL},
      // Collection entries are numbered per attribute (COL2: in the captures).
      {MediaResponse(), "media-col-ready.COL1.media-source", "tray-1", S_OK},
      {MediaResponse(), "media-col-default.COL1.media-type", "auto", S_OK},
      {MediaResponse(), "media-col-ready.COL3.media-type", "<vt 0>", E_FAIL},
      {MediaResponse(), "media-ready", "iso_a4_210x297mm", S_OK},
      // An integer whose value-length says 2 is still read as four bytes.
      {ResponseStart() + B({0x21}) + Be16(1) + "n" + Be16(2) + B({0x00, 0x00, 0x00, 0x05, 0x03}), "n", "5", S_OK},
      // textWithLanguage needs four bytes; a well-formed one is read past.
      {ResponseStart() + Attr(0x35, "printer-info", "abc") + B({0x03}), "printer-info", "<vt 0>", E_FAIL},
      {ResponseStart() + Attr(0x35, "printer-info", language) + state3, "printer-state", "3", S_OK},
      {ResponseStart() + Attr(0x35, "printer-info", language) + B({0x03}), "printer-info", "<vt 0>", S_OK},
      // dateTime and out-of-band values are read past.
      {ResponseStart() + Attr(0x31, "printer-current-time", std::string(11, '\x01')) +
           Attr(0x13, "printer-geo-location", "") + state3,
       "printer-state", "3", S_OK},
      // An error response's values are decoded as usual.
      {failed, "printer-state", "3", S_OK},
      {failed, "status-code", "1030", S_OK},
      // Only IPP/2.x is read.
      {ResponseStart(0, 1, 1) + state3, "printer-state", "<vt 0>", E_FAIL},
      {ResponseStart(0, 2, 1) + state3, "printer-state", "3", S_OK},
      // Without its end tag a response succeeds without a value.
      {ResponseStart() + Attr(0x23, "printer-state", Be32(3)), "printer-state", "<vt 0>", S_OK},
      // Resolutions and ranges arrive as their raw bytes, appended.
      {resolutions, "printer-resolution-supported", HexDump(r1 + r2), S_OK},
      {resolutions, "copies-supported", HexDump(Be32(1) + Be32(99)), S_OK},
      {tagged(std::string("\0\2en\0\4Desk", 10)), "name", "Desk", S_OK, true},
      {tagged(std::string("\0\2en\0\5Desk", 10)), "name", "<vt 0>", E_FAIL, true},   // text length past the value
      {tagged(std::string("\0\2en\0\3Desk", 10)), "name", "<vt 0>", E_FAIL, true},   // short of it
      {tagged(std::string("\0\11en\0\4Desk", 10)), "name", "<vt 0>", E_FAIL, true},  // language length past it
  };
  for (const Case& c : cases) {
    auto address = QxUtils::AdoptRef(NorvaneTest::FakeAddress::Create(u"192.0.2.7"));
    address->SetIppFieldCompatibility(c.fieldCompatible);
    IPPOperations ops(address.get());
    ops.SetAttributeName(c.key);
    Value value;
    EXPECT_EQ(Decode(ops, c.body, &value.v), c.hr) << c.key << "\n" << HexDump(c.body);
    EXPECT_EQ(Shown(value.v), c.expected) << c.key << "\n" << HexDump(c.body);
  }
}

TEST(IppDecodeCollections, QueriesByIndexConditionAndMemberPath) {
  IPPOperations media(nullptr), twice(nullptr);
  media.SetAttributeName("media-ready");
  ASSERT_EQ(Decode(media, MediaResponse()), S_OK);
  twice.SetAttributeName("media-col-ready");
  ASSERT_EQ(Decode(twice, ResponseStart() +
                              Collection("media-col-ready",
                                         Member("media-type", 0x44, "plain") + Member("media-type", 0x44, "photo")) +
                              B({0x03})),
            S_OK);
  struct Case {
    IPPOperations* decoded;
    const char* query;
    const char* expected;  // "<vt 0>": nothing found
  } cases[] = {
      {&media, "media-col-ready[0].media-type", "plain"},
      {&media, "media-col-ready[1].media-size.x-dimension", "10160"},
      {&media, "media-col-ready[media-source=tray-1,media-type=plain].media-type", "plain"},
      {&media, "media-col-ready[media-source=tray-1,media-type=photo].media-type", "<vt 0>"},
      {&media, "media-col-default[0].media-size.x-dimension", "1"},
      // Records count from the first of the name whatever their names.
      {&media, "media-col-default[1].media-type", "plain"},
      {&media, "media-col-ready[2].media-type", "<vt 0>"},
      {&media, "media-col-ready[-1].media-type", "<vt 0>"},
      {&media, "media-col-ready[0].media-size.no-such", "<vt 0>"},
      {&media, "media-col-ready[0]", "<vt 0>"},
      {&media, "no-such-collection[0].media-type", "<vt 0>"},
      // A member sent twice: its later value is the one read and matched.
      {&twice, "media-col-ready[0].media-type", "photo"},
      {&twice, "media-col-ready[media-type=photo].media-type", "photo"},
      {&twice, "media-col-ready[media-type=plain].media-type", "<vt 0>"},
  };
  for (const Case& c : cases) {
    Value value;
    bool found = c.decoded->QueryCollection(c.query, &value.v);
    EXPECT_EQ(Text(value.v), c.expected) << c.query;
    EXPECT_EQ(found, std::string(c.expected) != "<vt 0>") << c.query;
  }
}

// A job request takes only a job status; each decode starts from an empty map.
TEST(IppDecodeRules, JobStatusesAndAFreshMapPerDecode) {
  IPPOperations job(nullptr);
  job.SetJobOperations();
  job.SetAttributeName("printer-state");
  EXPECT_EQ(Decode(job, ResponseStart(0x0406) + Attr(0x23, "printer-state", Be32(3)) + B({0x03})), E_FAIL);
  EXPECT_EQ(Decode(job, ResponseStart(0x0404) + Attr(0x23, "printer-state", Be32(3)) + B({0x03})), S_OK);
  ASSERT_EQ(Decode(job, ResponseStart() + Attr(0x44, "printer-state-reasons", "none") + B({0x03})), S_OK);
  Value value;
  EXPECT_EQ(job.GetValueFromIPPMap("printer-state", &value.v), 1);
  EXPECT_EQ(value.v.vt, VT_EMPTY);
  EXPECT_EQ(Decode(job, "\x01"), E_FAIL);
  EXPECT_TRUE(job.GetValueMap().Empty());
}

TEST(IppResponseStructure, JobValuesComeFromTheFirstJob) {
  IPPOperations ops(nullptr);
  ops.SetAttributeName("job-state");
  ASSERT_EQ(
      Decode(ops, ResponseStart() + B({0x02}) + IntAttr(0x21, "job-id", 93) + Attr(0x45, "job-uri", "ipp://p/jobs/93") +
                      IntAttr(0x23, "job-state", 5) + Attr(0x44, "job-state-reasons", "job-printing") +
                      Attr(0x44, "", "job-incoming") + Attr(0x41, "document-access-error", "none") + B({0x02}) +
                      IntAttr(0x21, "job-id", 94) + IntAttr(0x23, "job-state", 9) +
                      Attr(0x44, "job-state-reasons", "job-completed-successfully") + B({0x03})),
      S_OK);
  auto r = QxUtils::Ref<Norvane::IPPResponseBase>::Adopt(CreateIPPResponse());
  ASSERT_EQ(ops.FormResponseStructure(10, r.get()), S_OK);
  EXPECT_STREQ(r->GetSuccessStatus(), "0");
  EXPECT_STREQ(r->GetRequestID(), "100");
  EXPECT_EQ(r->GetJobID(), 93);
  EXPECT_STREQ(r->GetJobURI(), "ipp://p/jobs/93");
  EXPECT_STREQ(r->GetJobState(), "Processing");
  EXPECT_STREQ(r->GetJobStateReasons(), "job-printing,job-incoming,job-completed-successfully");
  EXPECT_STREQ(r->GetDocumentAccessError(), "none");
}

TEST(IppCollectionDump, WritesOnlyIntoTheNamedDirectoryWithSafeNames) {
  NorvaneTest::TempDir root, quiet;
  std::filesystem::create_directory(root.Path() + "/dump");
  // No end tag: the decoder dumps what it saw.
  std::string body = ResponseStart() +
                     Collection("../../escape", Member("b", 0x44, "two") + Member("a", 0x21, Be32(1)) +
                                                    Member("r", 0x33, Be32(1) + Be32(2)) + Attr(0x4A, "", "inner") +
                                                    Collection("", Member("x", 0x44, "y"))) +
                     Collection("/abs", Member("k", 0x44, "v"));
  IPPOperations ops(nullptr);
  ops.SetAttributeName("x");
  // Off without the variable and when it names no directory; a second dump appends.
  for (std::string dir : {std::string(), quiet.Path() + "/missing", root.Path() + "/dump", root.Path() + "/dump"}) {
    if (!dir.empty()) setenv("NORVANE_COLLECTION_DUMP_DIR", dir.c_str(), 1);
    ASSERT_EQ(Decode(ops, body), S_OK);
  }
  unsetenv("NORVANE_COLLECTION_DUMP_DIR");
  EXPECT_TRUE(std::filesystem::is_empty(quiet.Path()));
  // The two dump files and nothing else anywhere under the root.
  size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root.Path())) files += entry.is_regular_file();
  EXPECT_EQ(files, 2u);
  const std::string record =
      "<../../escape>\n<a>1</a>\n<b>two</b>\n<r>Range</r>\n<inner>\n<x>y</x>\n</inner>\n</../../escape>\n";
  EXPECT_EQ(ReadFile(root.Path() + "/dump/_.._.._escape.xml"), "<SOC>" + record + record);
  EXPECT_EQ(ReadFile(root.Path() + "/dump/_abs.xml"), "<SOC></abs>\n<k>v</k>\n<//abs>\n</abs>\n<k>v</k>\n<//abs>\n");
  // Names that would leave the directory, or that it cannot hold.
  EXPECT_EQ(Norvane::IppDumpFileName(".."), "_..");
  EXPECT_EQ(Norvane::IppDumpFileName(""), "_");
  EXPECT_EQ(Norvane::IppDumpFileName(std::string_view("a/b\\c\0d", 7)), "a_b_c_d");
  EXPECT_EQ(Norvane::IppDumpFileName(std::string(300, 'x')).size(), 100u);
}

}  // namespace
