// The per-thread component runtime held for a scope. The runtime pairs every
// initialisation that counted (0 or 1) with one uninitialisation; holding it in
// a scope makes every exit path keep that pairing.
#pragma once

#include "platform/com_runtime.h"
#include "support/log.h"

namespace Norvane {

class ComponentRuntimeScope {
 public:
  // Records the outcome in `log`, the caller's function scope, when given.
  explicit ComponentRuntimeScope(QxLogging::CLogFunction* log = nullptr, int line = __builtin_LINE())
      : result_(CoInitialize()) {
    if (log == nullptr || !log->MayLog(QxLogging::kStandout)) return;
    if (result_ == S_OK) {
      log->Format(QxLogging::kStandout, line, "CoInitialize Passed");
    } else {
      log->Format(QxLogging::kStandout, line, "CoInitialize returned %x", static_cast<unsigned>(result_));
    }
  }
  ~ComponentRuntimeScope() {
    if (result_ == S_OK || result_ == S_FALSE) CoUninitialize();
  }
  ComponentRuntimeScope(const ComponentRuntimeScope&) = delete;
  ComponentRuntimeScope& operator=(const ComponentRuntimeScope&) = delete;

 private:
  HRESULT result_;
};

}  // namespace Norvane
