// A printer's DNS-SD TXT record, as its bytes come off the network: whatever it
// holds, what the tool takes from it stays bounded and printable, and "rp" only
// becomes a URI path when it is a plain path that cannot climb out of the root.
#include <avahi-common/strlst.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "dns_sd.h"

namespace {

void CheckShown(const std::string& text) {
  if (text.size() > 255) std::abort();
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace NorvaneCli;
  CheckShown(TxtText(data, size));
  AvahiStringList* txt = nullptr;
  if (avahi_string_list_parse(data, size, &txt) != 0) return 0;
  for (const char* key : {"UUID", "ty", "pdl", "rp", "RP"}) CheckShown(TxtValue(txt, key));
  std::string path;
  if (PrinterResourcePath(TxtValue(txt, "rp"), &path)) {
    if (path.find_first_of("%?#\\ ") != std::string::npos) std::abort();
    const std::string slashed = "/" + path + "/";
    if (slashed.find("/../") != std::string::npos || slashed.find("/./") != std::string::npos) std::abort();
  }
  avahi_string_list_free(txt);
  return 0;
}
