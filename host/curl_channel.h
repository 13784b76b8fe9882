// libcurl handles owned by unique_ptr, the channel that keeps a printer's
// connection alive between requests, and the handles that drive exchanges.
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

// What a printer's connection leaves behind between requests: a libcurl share
// holding the connections, name lookups and TLS sessions, so that an exchange
// run on the same channel after another reuses the open connection whichever
// handles drive it. A channel is used by one exchange at a time (the share is
// never touched by two threads at once, so it needs no lock); idle channels
// wait in their address's pool, and a channel's connections close with it.
class CurlChannel {
 public:
  static std::unique_ptr<CurlChannel> Create();

  CURLSH* Share() const { return share_.get(); }

 private:
  explicit CurlChannel(CurlSharePtr share) : share_(std::move(share)) {}
  CurlSharePtr share_;
};

// The handles that run one exchange: an easy handle and the multi handle that
// drives it. A multi handle costs a socket pair (its wake-up), more than
// everything else an exchange sets up, so handles whose exchange ended wait
// here for the next exchange of any address. They hold nothing of a printer:
// connections, lookups and TLS sessions stay in the channel, and the easy
// handle's options are reset for each exchange.
struct CurlEngine {
  // Declared first so that it is destroyed last, after the easy handle.
  CurlMultiPtr multi;
  CurlEasyPtr easy;
};

// Null when libcurl cannot make the handles.
std::unique_ptr<CurlEngine> TakeEngine();
// The easy handle must be out of the multi handle and off any share.
void ReturnEngine(std::unique_ptr<CurlEngine> engine);

}  // namespace NorvaneHost
