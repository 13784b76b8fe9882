#include "platform/debug_output.h"

#include <cstdio>

namespace Norvane {

void OutputDebugText(const char* text) {
  if (text != nullptr) std::fputs(text, stderr);
}

}  // namespace Norvane
