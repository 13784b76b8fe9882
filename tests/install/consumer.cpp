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
  std::printf("provider=null lastError=%u version=%s\n", GetLastError(), NorvaneVersion());
  return GetLastError() == 87 ? 0 : 1;
}
