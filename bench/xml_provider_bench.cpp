// The XML providers' two promises: a value read from a cached document costs
// little more than libxml2 evaluating the same XPath itself (goal: at most
// 1.3 times), and a cold collection fetches each distinct resource once.
// The device is the simulator's default fixture set, served in process by the
// tests' fake host on a port name (so the IPP check makes no TCP probe).
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "norvane/api.h"
#include "providers/vexa_provider_impl.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

std::string Fixture(const std::u16string& path) {
  std::ifstream in(std::string(NORVANE_SOURCE_DIR "/tests/fixtures/printer-sim/http") +
                   std::string(path.begin(), path.end()));
  return std::string(std::istreambuf_iterator<char>(in), {});
}

QxUtils::Ref<FakeAddress> Device() {
  auto device = QxUtils::AdoptRef(FakeAddress::Create(u"USB001"));
  device->responder = [](const FakeExchange& e) {
    std::string body = Fixture(e.resource);
    return body.empty() ? FakeReply{404, "", {}, S_OK} : FakeReply{200, body, {}, S_OK};
  };
  return device;
}

const char16_t* const kExpressions[] = {
    u"//dd:SerialNumber",
    u"//dd:MakeAndModel",
    u"//prdcfgdyn:ProductInformation/dd:ProductNumber",
    u"//dd:UUID",
    u"/prdcfgdyn:ProductConfigDyn/prdcfgdyn:ProductSettings/dd:DeviceLocation",
    u"//dd:Manufacturer/dd:Date",
    u"//dd:CountryAndRegionName",
    u"//dd:AutoOffTime",
    u"//prdcfgdyn:ProductInformation/dd:Version/dd:Revision",
    u"//dd:DeviceLanguage",
};
constexpr int kCalls = 1000;

// Thread CPU time: the machine is shared, and wall time would count other work.
double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// libxml2 alone: one parsed document, one context with the document's prefixes
// registered once, and per call the evaluation and the first node's text.
double LibxmlSeconds(const std::string& body) {
  xmlDoc* doc = xmlReadMemory(body.data(), static_cast<int>(body.size()), nullptr, nullptr, XML_PARSE_NOBLANKS);
  xmlXPathContext* context = xmlXPathNewContext(doc);
  xmlXPathRegisterNs(context, BAD_CAST "prdcfgdyn",
                     BAD_CAST "http://www.qv.example/schemas/vexa/2011/03/ProductConfigDyn");
  xmlXPathRegisterNs(context, BAD_CAST "dd", BAD_CAST "http://www.qv.example/schemas/vexa/2011/03/DataDictionary");
  std::vector<std::string> expressions;
  for (const char16_t* e : kExpressions) expressions.emplace_back(e, e + std::char_traits<char16_t>::length(e));
  double start = CpuSeconds();
  for (int i = 0; i < kCalls; ++i) {
    xmlXPathObject* result = xmlXPathEvalExpression(BAD_CAST expressions[i % expressions.size()].c_str(), context);
    xmlChar* text = xmlNodeGetContent(result->nodesetval->nodeTab[0]);
    benchmark::DoNotOptimize(text);
    xmlFree(text);
    xmlXPathFreeObject(result);
  }
  double seconds = CpuSeconds() - start;
  xmlXPathFreeContext(context);
  xmlFreeDoc(doc);
  return seconds;
}

double ProviderSeconds(VEXAProviderImpl* provider) {
  char16_t buffer[256];
  uint32_t needed = 0;
  double start = CpuSeconds();
  for (int i = 0; i < kCalls; ++i) {
    HRESULT hr = provider->GetValue(u"/DevMgmt/ProductConfigDyn.xml", kExpressions[i % std::size(kExpressions)], buffer,
                                    256, &needed, 1, 0);
    benchmark::DoNotOptimize(hr);
  }
  return CpuSeconds() - start;
}

void BM_CachedGetValueVersusLibxml(benchmark::State& state) {
  auto device = Device();
  auto provider = QxUtils::AdoptRef(VEXAProviderImpl::Create(device.get()));
  std::string body = Fixture(u"/DevMgmt/ProductConfigDyn.xml");
  ProviderSeconds(provider.get());  // fetches and parses once
  double ours = 0;
  double theirs = 0;
  for (auto _ : state) {
    ours += ProviderSeconds(provider.get());
    theirs += LibxmlSeconds(body);
  }
  double calls = static_cast<double>(state.iterations()) * kCalls;
  state.counters["provider_ns_per_call"] = ours / calls * 1e9;
  state.counters["libxml2_ns_per_call"] = theirs / calls * 1e9;
  state.counters["ratio"] = ours / theirs;
  state.counters["fetches"] = static_cast<double>(device->exchanges.size());
}
BENCHMARK(BM_CachedGetValueVersusLibxml)->Unit(benchmark::kMillisecond);

// Twenty values over four resources (one named by its path, three by type).
void BM_ColdVexaCollection(benchmark::State& state) {
  std::u16string document = u"<DataMaps><XMLDataMap Protocol='VEXA'>";
  const char16_t* const sources[][2] = {
      {u"vexa:qvVexaProductConfigDyn", u"//dd:SerialNumber"},
      {u"vexa:qvVexaProductStatusDyn", u"//dd:StatusCategory"},
      {u"vexa:qvVexaConsumableConfigDyn", u"//dd:MarkerColor"},
      {u"/DevMgmt/NetAppsDyn.xml", u"//*[1]"},
  };
  for (int i = 0; i < 20; ++i) {
    document += u"<DataItem Name='V" + std::u16string(1, static_cast<char16_t>(u'a' + i)) + u"' URI='" +
                sources[i % 4][0] + u"' XPath='" + sources[i % 4][1] + u"'/>";
  }
  document += u"</XMLDataMap></DataMaps>";
  size_t requests = 0;
  std::set<std::u16string> distinct;
  for (auto _ : state) {
    auto device = Device();
    DataCollection* collection = nullptr;
    if (CreateDataCollectionFromXML(device.get(), document.c_str(), &collection, nullptr) != S_OK) {
      state.SkipWithError("no collection");
      break;
    }
    for (int i = 0; i < 20; ++i) {
      std::u16string key = u"V" + std::u16string(1, static_cast<char16_t>(u'a' + i));
      Variant value;
      collection->GetValue(key.c_str(), value.Ptr());
    }
    collection->Dispose();
    requests = 0;
    distinct.clear();
    for (const FakeExchange& e : device->exchanges) {
      if (e.port != 8080) continue;  // the print-contract check asks IPP first
      ++requests;
      distinct.insert(e.resource);
    }
  }
  state.counters["requests"] = static_cast<double>(requests);
  state.counters["distinct_resources"] = static_cast<double>(distinct.size());
}
BENCHMARK(BM_ColdVexaCollection)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
