#include "norvane/disposable.h"

#include "support/disposable_set.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

Norvane::IDisposable::~IDisposable() = default;

IDisposable::~IDisposable() = default;

namespace QxUtils {

CDisposable::CDisposable() { RegisterDisposable(this); }

CDisposable::~CDisposable() { UnregisterDisposable(this); }

uint32_t CDisposable::AddRefImpl() {
  QX_LOG_FUNCTION(QxLogging::Utils(), "QxUtils::CDisposable::AddRefImpl");
  int32_t count = count_.fetch_add(1, std::memory_order_relaxed) + 1;
  if (qxLog_.Enabled(QxLogging::kInfo)) {
    QX_LOG(QxLogging::kInfo, "%s (%p) ref is %d", WideToUtf8(GetWideTypeName()).c_str(), static_cast<void*>(this),
           count);
  }
  return static_cast<uint32_t>(count);
}

uint32_t CDisposable::DisposeImpl() {
  QX_LOG_FUNCTION(QxLogging::Utils(), "QxUtils::CDisposable::DisposeImpl");
  // Everything the record needs is read while this thread still holds its
  // reference: once the decrement is done another thread may release the last
  // one and destroy the object.
  const bool logging = qxLog_.Enabled(QxLogging::kInfo);
  std::string name;
  if (logging) name = WideToUtf8(GetWideTypeName());
  const bool keepAlive = keepAlive_;
  int32_t count = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (logging) QX_LOG(QxLogging::kInfo, "%s (%p) ref is %d", name.c_str(), static_cast<void*>(this), count);
  // Decide on the value the decrement produced: of two threads releasing the
  // last two references exactly one sees zero.
  if (count == 0 && !keepAlive) delete static_cast<::IDisposable*>(this);
  return static_cast<uint32_t>(count);
}

void CDisposable::SetKeepAlive(bool keepAlive) { keepAlive_ = keepAlive; }

bool CDisposable::GetKeepAlive() { return keepAlive_; }

const char* CDisposable::GetTypeName() { return nullptr; }

const std::u16string& CDisposable::GetWideTypeName() {
  // Objects are shared between threads (the print path's polling threads release
  // them too), so the cache is filled once under its own flag.
  std::call_once(typeNameOnce_, [this] {
    if (const char* name = GetTypeName()) {
      for (const char* p = name; *p != 0; ++p) typeName_.push_back(static_cast<unsigned char>(*p));
    }
  });
  return typeName_;
}

}  // namespace QxUtils

uint32_t IDisposableImpl::Dispose() { return DisposeImpl(); }

uint32_t IDisposableImpl::AddRef() { return AddRefImpl(); }

void IDisposableImpl::SetKeepAlive(bool keepAlive) { CDisposable::SetKeepAlive(keepAlive); }

bool IDisposableImpl::GetKeepAlive() { return CDisposable::GetKeepAlive(); }

const char* IDisposableImpl::GetTypeName() {
  return "<GetTypeName(): class identification disabled, refer to IDisposableImpl>";
}
