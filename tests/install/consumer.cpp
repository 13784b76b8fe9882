// A host program built outside the tree against the installed package.
#include <norvane/norvane.h>

#include <cstdio>

int main() {
  SetLastError(0);
  Norvane::IPPProvider* provider = CreateIPPPrintProvider(nullptr, u"ipps://printer.example/ipp/print");
  if (provider != nullptr) {
    provider->Dispose();
    std::puts("unexpected provider");
    return 1;
  }
  unsigned lastError = GetLastError();
  // The cache classes come with the umbrella header, and their type is known here.
  Norvane::ICacheProvider* cache = CreateRegCacheProvider(u"Software\\Consumer");
  bool registryCache = dynamic_cast<Norvane::RegCacheProvider*>(cache) != nullptr;
  if (cache != nullptr) cache->Dispose();
  std::printf("provider=null lastError=%u registryCache=%d version=%s\n", lastError, registryCache, NorvaneVersion());
  return lastError == 87 && registryCache ? 0 : 1;
}
