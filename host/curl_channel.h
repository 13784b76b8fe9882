// libcurl handles owned by unique_ptr, and the channel that keeps a printer's
// connection alive between requests.
#pragma once

#include <curl/curl.h>

#include <memory>

namespace NorvaneHost {

struct CurlEasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct CurlMultiDeleter {
  void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
};
struct CurlListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlEasyPtr = std::unique_ptr<CURL, CurlEasyDeleter>;
using CurlMultiPtr = std::unique_ptr<CURLM, CurlMultiDeleter>;
using CurlListPtr = std::unique_ptr<curl_slist, CurlListDeleter>;

// libcurl's process-wide start, done once whatever the thread.
bool EnsureCurlStarted();

// One easy handle and the multi handle that drives it. The multi handle owns
// the connection cache, so an exchange run on the same channel after another
// reuses the open connection. A channel is used by one exchange at a time;
// idle channels wait in their address's pool.
class CurlChannel {
 public:
  static std::unique_ptr<CurlChannel> Create();

  CURL* Easy() const { return easy_.get(); }
  CURLM* Multi() const { return multi_.get(); }

 private:
  CurlChannel(CurlMultiPtr multi, CurlEasyPtr easy) : multi_(std::move(multi)), easy_(std::move(easy)) {}
  // Declared first so that it is destroyed last: the easy handle goes before
  // the multi handle that closes the cached connections.
  CurlMultiPtr multi_;
  CurlEasyPtr easy_;
};

}  // namespace NorvaneHost
