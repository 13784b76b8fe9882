#include "curl_channel.h"

#include <mutex>
#include <new>
#include <vector>

namespace NorvaneHost {

namespace {

// Idle engines kept; more exchanges at once than this make engines that close
// when their exchange ends.
constexpr size_t kMaxIdleEngines = 8;

struct EnginePool {
  // Room for every idle engine from the start: engines go back from a
  // destructor, which must not throw, so the list never grows after this.
  EnginePool() { idle.reserve(kMaxIdleEngines); }

  std::mutex mutex;
  std::vector<std::unique_ptr<CurlEngine>> idle;
};

EnginePool& Pool() {
  // Never destroyed: an exchange may still end on another thread while the
  // process exits.
  static auto* pool = new EnginePool;
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
  if (!share) return nullptr;
  for (curl_lock_data data : {CURL_LOCK_DATA_CONNECT, CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_SSL_SESSION}) {
    if (curl_share_setopt(share.get(), CURLSHOPT_SHARE, data) != CURLSHE_OK) return nullptr;
  }
  return std::unique_ptr<CurlChannel>(new CurlChannel(std::move(share)));
}

std::unique_ptr<CurlEngine> TakeEngine() {
  if (!EnsureCurlStarted()) return nullptr;
  EnginePool& pool = Pool();
  {
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (!pool.idle.empty()) {
      std::unique_ptr<CurlEngine> engine = std::move(pool.idle.back());
      pool.idle.pop_back();
      return engine;
    }
  }
  std::unique_ptr<CurlEngine> engine(new (std::nothrow) CurlEngine);
  if (!engine) return nullptr;
  engine->multi.reset(curl_multi_init());
  engine->easy.reset(curl_easy_init());
  if (!engine->multi || !engine->easy) return nullptr;
  return engine;
}

void ReturnEngine(std::unique_ptr<CurlEngine> engine) {
  if (!engine) return;
  EnginePool& pool = Pool();
  std::lock_guard<std::mutex> lock(pool.mutex);
  // One the pool has no room for closes on return, after the lock.
  if (pool.idle.size() < kMaxIdleEngines) pool.idle.push_back(std::move(engine));
}

}  // namespace NorvaneHost
