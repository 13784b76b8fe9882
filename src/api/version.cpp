#include "norvane/api.h"

#ifndef NORVANE_VERSION_STRING
#error "the build defines NORVANE_VERSION_STRING"
#endif
#ifndef NORVANE_BUILD_ID
#define NORVANE_BUILD_ID "unknown"
#endif

extern "C" const char* NorvaneVersion(void) { return NORVANE_VERSION_STRING; }

extern "C" const char* NorvaneBuildId(void) { return NORVANE_BUILD_ID; }
