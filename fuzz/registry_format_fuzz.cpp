// Value files can be edited by hand: any text must parse or fail cleanly, and
// whatever parses must survive a format/parse round trip unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/registry_format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace Norvane::Registry;
  ValueList values;
  if (!ParseValues(std::string_view(reinterpret_cast<const char*>(data), size), &values)) return 0;
  ValueList again;
  if (!ParseValues(FormatValues(values), &again) || again.size() != values.size()) std::abort();
  for (size_t i = 0; i < values.size(); ++i) {
    if (again[i].name != values[i].name || again[i].type != values[i].type || again[i].text != values[i].text ||
        again[i].dword != values[i].dword) {
      std::abort();
    }
  }
  return 0;
}
