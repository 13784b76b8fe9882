// Value lookups in a collection's table, and saving a table through the
// registry cache in one atomic write. The lookups are set beside a plain
// std::unordered_map holding the same values, looked up with the same keys in
// the same order and copied out the same way: the floor of a hash lookup.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "cpu_time_reporter.h"
#include "engine/data_collection_impl.h"
#include "norvane/cache.h"
#include "platform/clock.h"

namespace {

using namespace Norvane;

class BenchMapper : public DisposableObject<DataCollectionImpl> {
 public:
  static BenchMapper* Create() {
    auto* m = new BenchMapper();
    m->AddRef();
    return m;
  }
  std::u16string GetDataMapName() override { return u"Bench"; }
};

std::u16string Key(int i) {
  std::string k = "dev:Supply" + std::to_string(i) + ".Level";
  return std::u16string(k.begin(), k.end());
}

void BM_GetValueHit(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  BenchMapper* m = BenchMapper::Create();
  std::vector<std::u16string> keys;
  for (int i = 0; i < n; ++i) {
    keys.push_back(Key(i));
    Variant v = Variant::FromInt32(i);
    m->StoreValue(keys.back().c_str(), &v.Get(), 600);
  }
  size_t at = 0;
  VARIANT out;
  VariantInit(&out);
  for (auto _ : state) {
    HRESULT hr = m->GetValue(keys[at].c_str(), &out);
    benchmark::DoNotOptimize(hr);
    at = (at + 7919) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
  m->Dispose();
}
BENCHMARK(BM_GetValueHit)->Arg(10000);

void BM_UnorderedMapHit(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::unordered_map<std::u16string, Variant> table;
  std::vector<std::u16string> keys;
  for (int i = 0; i < n; ++i) {
    keys.push_back(Key(i));
    table.emplace(keys.back(), Variant::FromInt32(i));
  }
  size_t at = 0;
  VARIANT out;
  VariantInit(&out);
  for (auto _ : state) {
    auto found = table.find(keys[at]);
    HRESULT hr = found == table.end() ? E_FAIL : VariantCopy(&out, &found->second.Get());
    benchmark::DoNotOptimize(hr);
    at = (at + 7919) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_UnorderedMapHit)->Arg(10000);

void BM_GetValueHitText(benchmark::State& state) {
  BenchMapper* m = BenchMapper::Create();
  std::vector<std::u16string> keys;
  for (int i = 0; i < 10000; ++i) {
    keys.push_back(Key(i));
    Variant v = Variant::FromString(u"toner-low-warning");
    m->StoreValue(keys.back().c_str(), &v.Get(), 0);
  }
  size_t at = 0;
  for (auto _ : state) {
    VARIANT out;
    VariantInit(&out);
    m->GetValue(keys[at].c_str(), &out);
    VariantClear(&out);
    at = (at + 7919) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
  m->Dispose();
}
BENCHMARK(BM_GetValueHitText);

void BM_SetDataValues(benchmark::State& state) {
  std::string dir = (std::filesystem::temp_directory_path() / "norvane-bench-XXXXXX").string();
  if (mkdtemp(dir.data()) == nullptr) {
    state.SkipWithError("mkdtemp");
    return;
  }
  setenv("NORVANE_REGISTRY_DIR", dir.c_str(), 1);
  RegCacheProvider* cache = RegCacheProvider::Create(u"Software\\Norvane\\Bench");
  cache->SetDeviceIdentity(u"SN0001", u"OID");
  ValueTable table;
  uint64_t now = 0;
  GetCurrentFileTime(&now);
  for (int i = 0; i < static_cast<int>(state.range(0)); ++i) {
    CachedValue c;
    c.value = i % 2 ? Variant::FromInt32(i) : Variant::FromString(u"Tray 2: A4 plain, 250 sheets");
    c.stamp = now;
    c.lifespan = 36000;
    table.emplace(Key(i), std::move(c));
  }
  for (auto _ : state) benchmark::DoNotOptimize(cache->SetDataValues(table));
  state.SetItemsProcessed(state.iterations() * state.range(0));
  cache->Dispose();
  std::filesystem::remove_all(dir);
  unsetenv("NORVANE_REGISTRY_DIR");
}
BENCHMARK(BM_SetDataValues)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  NorvaneBench::CpuTimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintHeading("GetValue hit, 10,000 values (goal < 100 ns)", "GetValue (ns CPU)", "unordered_map");
  reporter.PrintPair("int value", "BM_GetValueHit/10000", "BM_UnorderedMapHit/10000");
  benchmark::Shutdown();
  return 0;
}
