#include "curl_channel.h"

#include <mutex>
#include <vector>

namespace NorvaneHost {

namespace {

// Idle multi handles kept; more exchanges at once than this make handles that
// close when their exchange ends.
constexpr size_t kMaxIdleMultis = 8;

struct MultiPool {
  std::mutex mutex;
  std::vector<CurlMultiPtr> idle;
};

MultiPool& Pool() {
  // Never destroyed: an exchange may still end on another thread while the
  // process exits.
  static auto* pool = new MultiPool;
  return *pool;
}

}  // namespace

bool EnsureCurlStarted() {
  static std::once_flag once;
  static bool started = false;
  // Never undone: the host program may use libcurl itself.
  std::call_once(once, [] { started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
  return started;
}

std::unique_ptr<CurlChannel> CurlChannel::Create() {
  if (!EnsureCurlStarted()) return nullptr;
  CurlSharePtr share(curl_share_init());
  if (!share || curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT) != CURLSHE_OK ||
      curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS) != CURLSHE_OK) {
    return nullptr;
  }
  CurlEasyPtr easy(curl_easy_init());
  // The share outlives every reset of the easy handle.
  if (!easy || curl_easy_setopt(easy.get(), CURLOPT_SHARE, share.get()) != CURLE_OK) return nullptr;
  return std::unique_ptr<CurlChannel>(new CurlChannel(std::move(share), std::move(easy)));
}

CurlMultiPtr TakeMulti() {
  if (!EnsureCurlStarted()) return nullptr;
  MultiPool& pool = Pool();
  {
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (!pool.idle.empty()) {
      CurlMultiPtr multi = std::move(pool.idle.back());
      pool.idle.pop_back();
      return multi;
    }
  }
  return CurlMultiPtr(curl_multi_init());
}

void ReturnMulti(CurlMultiPtr multi) {
  if (!multi) return;
  MultiPool& pool = Pool();
  std::lock_guard<std::mutex> lock(pool.mutex);
  // One the pool has no room for closes on return, after the lock.
  if (pool.idle.size() < kMaxIdleMultis) pool.idle.push_back(std::move(multi));
}

}  // namespace NorvaneHost
