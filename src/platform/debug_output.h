#pragma once

namespace Norvane {

// The debugger output of the original platform: standard error here.
void OutputDebugText(const char* text);

}  // namespace Norvane
