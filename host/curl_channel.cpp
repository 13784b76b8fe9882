#include "curl_channel.h"

#include <mutex>

namespace NorvaneHost {

bool EnsureCurlStarted() {
  static std::once_flag once;
  static bool started = false;
  // Never undone: the host program may use libcurl itself.
  std::call_once(once, [] { started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
  return started;
}

std::unique_ptr<CurlChannel> CurlChannel::Create() {
  if (!EnsureCurlStarted()) return nullptr;
  CurlMultiPtr multi(curl_multi_init());
  CurlEasyPtr easy(curl_easy_init());
  if (!multi || !easy) return nullptr;
  return std::unique_ptr<CurlChannel>(new CurlChannel(std::move(multi), std::move(easy)));
}

}  // namespace NorvaneHost
