#include "norvane/platform.h"

namespace {
thread_local DWORD t_lastError = 0;
}

extern "C" DWORD GetLastError(void) { return t_lastError; }

extern "C" void SetLastError(DWORD code) { t_lastError = code; }
