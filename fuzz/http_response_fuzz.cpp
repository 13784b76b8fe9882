// A device's HTTP answer as the host reads it from a connection, cut into two
// reads at a point the input chooses: the reader must end in one state, keep no
// more body than it was allowed, and never read outside what it was given.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "http_response_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t maxBody = 4096;
  NorvaneHost::HttpResponseReader reader((data[0] & 1) != 0, maxBody);
  size_t cut = data[1] % (size - 1);
  data += 2;
  size -= 2;
  reader.Feed(data, cut);
  reader.Feed(data + cut, size - cut);
  if ((data[-2] & 2) != 0) reader.End();
  const NorvaneHost::ExchangeResponse& response = reader.Response();
  if (response.body.size() > maxBody) std::abort();
  if (reader.GetState() == NorvaneHost::HttpResponseReader::State::kDone &&
      (response.status < 100 || response.status > 999)) {
    std::abort();
  }
  return 0;
}
