// The per-thread component runtime. Linux has none: initialisation always
// succeeds with 0 so callers keep their log records and pairing rules.
#pragma once

#include "norvane/platform.h"

namespace Norvane {

HRESULT CoInitialize();
void CoUninitialize();

}  // namespace Norvane
