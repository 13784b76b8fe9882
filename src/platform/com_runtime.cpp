#include "platform/com_runtime.h"

namespace Norvane {

HRESULT CoInitialize() { return S_OK; }

void CoUninitialize() {}

}  // namespace Norvane
