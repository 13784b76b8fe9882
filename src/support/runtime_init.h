// The component-runtime pairing every object that parses XML follows: initialise
// on construction with its log record, uninitialise only after a call that
// succeeded (0 or 1).
#pragma once

#include "norvane/platform.h"
#include "support/log.h"

namespace QxUtils {

// Initialises the calling thread and writes "CoInitialize Passed" or
// "CoInitialize returned %x" into `scope`.
HRESULT InitializeRuntime(QxLogging::CLogFunction& scope);
// Undoes InitializeRuntime when `init` says it took effect.
void ReleaseRuntime(HRESULT init);

}  // namespace QxUtils
