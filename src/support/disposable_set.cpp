#include "support/disposable_set.h"

#include <cstdlib>
#include <mutex>
#include <set>

#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace QxUtils {

namespace {

struct AddressLess {
  bool operator()(const ::IDisposable* a, const ::IDisposable* b) const {
    return reinterpret_cast<uintptr_t>(a) < reinterpret_cast<uintptr_t>(b);
  }
};

class CDisposableSet {
 public:
  void Insert(const ::IDisposable* object) {
    std::lock_guard<std::mutex> lock(mutex_);
    objects_.insert(object);
  }
  void Erase(const ::IDisposable* object) {
    std::lock_guard<std::mutex> lock(mutex_);
    objects_.erase(object);
  }
  bool Contains(const ::IDisposable* object) {
    std::lock_guard<std::mutex> lock(mutex_);
    return objects_.count(object) != 0;
  }
  size_t Size() {
    std::lock_guard<std::mutex> lock(mutex_);
    return objects_.size();
  }
  void Report();

 private:
  std::mutex mutex_;
  std::multiset<const ::IDisposable*, AddressLess> objects_;
};

std::mutex g_setMutex;
CDisposableSet* g_set = nullptr;
bool g_tornDown = false;

void DestroySetAtExit() {
  CDisposableSet* set;
  {
    std::lock_guard<std::mutex> lock(g_setMutex);
    set = g_set;
    g_set = nullptr;
    g_tornDown = true;
  }
  if (set != nullptr) {
    set->Report();
    delete set;
  }
}

CDisposableSet* Set(bool create) {
  std::lock_guard<std::mutex> lock(g_setMutex);
  if (g_set == nullptr && create && !g_tornDown) {
    // The logging module must outlive the report, so it is built first and its
    // destructor is queued before the set's exit handler.
    QxLogging::Utils();
    g_set = new CDisposableSet();
    std::atexit(DestroySetAtExit);
  }
  return g_set;
}

void CDisposableSet::Report() {
  QX_LOG_FUNCTION(QxLogging::Utils(), "QxUtils::CDisposableSet::~CDisposableSet");
  try {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const ::IDisposable* entry : objects_) {
      auto* object = dynamic_cast<CDisposable*>(const_cast<::IDisposable*>(entry));
      if (object != nullptr) {
        QX_LOG(QxLogging::kStandout, "%s (%p) remains in object set with ref count of %d",
               WideToUtf8(object->GetWideTypeName()).c_str(), static_cast<void*>(object), object->GetRefCount());
      } else {
        QX_LOG(QxLogging::kStandout, "%p remains in object set but could not be cast as CDisposable*",
               static_cast<const void*>(entry));
      }
    }
  } catch (...) {
    QX_LOG(QxLogging::kException, "Exception caught in CDisposableSet::~CDisposableSet()");
  }
}

}  // namespace

void RegisterDisposable(const ::IDisposable* object) {
  if (CDisposableSet* set = Set(true)) set->Insert(object);
}

void UnregisterDisposable(const ::IDisposable* object) {
  std::lock_guard<std::mutex> lock(g_setMutex);
  if (g_set != nullptr) g_set->Erase(object);
}

void ReportRemainingDisposables() {
  std::lock_guard<std::mutex> lock(g_setMutex);
  if (g_set != nullptr) g_set->Report();
}

size_t LiveDisposableCount() {
  std::lock_guard<std::mutex> lock(g_setMutex);
  return g_set == nullptr ? 0 : g_set->Size();
}

bool IsRegisteredDisposable(const ::IDisposable* object) {
  std::lock_guard<std::mutex> lock(g_setMutex);
  return g_set != nullptr && g_set->Contains(object);
}

}  // namespace QxUtils
