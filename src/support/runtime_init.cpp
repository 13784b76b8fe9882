#include "support/runtime_init.h"

#include "platform/com_runtime.h"

namespace QxUtils {

HRESULT InitializeRuntime(QxLogging::CLogFunction& qxLog_) {
  HRESULT init = Norvane::CoInitialize();
  if (init == S_OK) {
    QX_LOG(QxLogging::kStandout, "CoInitialize Passed");
  } else {
    QX_LOG(QxLogging::kStandout, "CoInitialize returned %x", static_cast<unsigned>(init));
  }
  return init;
}

void ReleaseRuntime(HRESULT init) {
  if (init == S_OK || init == S_FALSE) Norvane::CoUninitialize();
}

}  // namespace QxUtils
