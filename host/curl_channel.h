// libcurl handles owned by unique_ptr, the channel that keeps a printer's
// connection alive between requests, and the multi handles that drive them.
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
struct CurlShareDeleter {
  void operator()(CURLSH* handle) const noexcept { curl_share_cleanup(handle); }
};
struct CurlListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlEasyPtr = std::unique_ptr<CURL, CurlEasyDeleter>;
using CurlMultiPtr = std::unique_ptr<CURLM, CurlMultiDeleter>;
using CurlSharePtr = std::unique_ptr<CURLSH, CurlShareDeleter>;
using CurlListPtr = std::unique_ptr<curl_slist, CurlListDeleter>;

// libcurl's process-wide start, done once whatever the thread.
bool EnsureCurlStarted();

// One easy handle and the share that holds its connections and name lookups,
// so that an exchange run on the same channel after another reuses the open
// connection whichever multi handle drives it. A channel is used by one
// exchange at a time (the share is never touched by two threads at once, so it
// needs no lock); idle channels wait in their address's pool, and a channel's
// connections close with it.
class CurlChannel {
 public:
  static std::unique_ptr<CurlChannel> Create();

  CURL* Easy() const { return easy_.get(); }

 private:
  CurlChannel(CurlSharePtr share, CurlEasyPtr easy) : share_(std::move(share)), easy_(std::move(easy)) {}
  // Declared first so that it is destroyed last: libcurl keeps a share that an
  // easy handle still uses.
  CurlSharePtr share_;
  CurlEasyPtr easy_;
};

// Multi handles for exchanges, one per exchange while it runs. A multi handle
// costs a socket pair (its wake-up), more than a whole channel, so a handle
// whose exchange ended waits here for the next exchange of any address: it
// holds no connection, those stay in the channels. Null when libcurl cannot
// make one.
CurlMultiPtr TakeMulti();
void ReturnMulti(CurlMultiPtr multi);

}  // namespace NorvaneHost
