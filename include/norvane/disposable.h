// Reference-counted object model. Nobody deletes a disposable object: holders add
// a reference when they keep a pointer and dispose of it when they let go; the
// decrement that reaches zero destroys the object.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "norvane/export.h"

namespace Norvane {

// The exported interface every public interface derives from. Hosts release the
// library's objects, and the library releases the host's transport objects,
// through these two entries.
class NORVANE_API IDisposable {
 public:
  virtual uint32_t AddRef() = 0;
  virtual uint32_t Dispose() = 0;
  virtual ~IDisposable();
};

}  // namespace Norvane

// The library's internal object interface, always inherited virtually.
class NORVANE_API IDisposable {
 public:
  virtual ~IDisposable();
  virtual uint32_t Dispose() = 0;
  virtual uint32_t AddRef() = 0;
  virtual void SetKeepAlive(bool keepAlive) = 0;
  virtual bool GetKeepAlive() = 0;
};

namespace QxUtils {

class NORVANE_API CDisposable : public virtual ::IDisposable {
 public:
  CDisposable();
  CDisposable(const CDisposable&) = delete;
  CDisposable& operator=(const CDisposable&) = delete;
  ~CDisposable() override;

  // Counts change by atomic read-modify-write only. Increments are relaxed
  // (holding a reference already orders the object); the decrement is acq_rel so
  // that the thread that destroys the object sees every other holder's writes.
  virtual uint32_t AddRefImpl();
  virtual uint32_t DisposeImpl();
  void SetKeepAlive(bool keepAlive) override;
  bool GetKeepAlive() override;
  virtual const char* GetTypeName();

  // The class name text used in log records; widened from GetTypeName once.
  const std::u16string& GetWideTypeName();
  int32_t GetRefCount() const { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<int32_t> count_{0};
  bool keepAlive_ = false;
  std::once_flag typeNameOnce_;
  std::u16string typeName_;
};

// Number of disposable objects alive in the process (for tests and the exit report).
NORVANE_API size_t LiveDisposableCount();
// Whether the object at this address is registered as alive.
NORVANE_API bool IsRegisteredDisposable(const ::IDisposable* object);

}  // namespace QxUtils

// The base every concrete library class names.
class NORVANE_API IDisposableImpl : public QxUtils::CDisposable {
 public:
  uint32_t Dispose() override;
  uint32_t AddRef() override;
  void SetKeepAlive(bool keepAlive) override;
  bool GetKeepAlive() override;
  const char* GetTypeName() override;
};

namespace Norvane {

// A concrete class implementing an exported interface: both AddRef entries and
// both Dispose entries meet in the reference count.
template <class Interface>
class DisposableObject : public Interface, public IDisposableImpl {
 public:
  uint32_t AddRef() override { return AddRefImpl(); }
  uint32_t Dispose() override { return DisposeImpl(); }
};

}  // namespace Norvane
