// Fills a module's settings from the current user's registry, layered from
// general to specific:
//
//   Software\QV\Qx\Logging                      all programs (and LogParmsPollTime)
//     \<executable base name>                   one program (and the ExtMonitor* values)
//       \<module name>                          one logging module; the program's key
//                                               itself when the module is named
//                                               like the executable without extension
//         \<source file base name>              one source file, any letter case
//
// Each key may hold LogInfoDetailLevel, LogCategories, LogOptions (DWORD) and
// LogFileName (string); a missing value keeps the inherited one.
#pragma once

#include <string_view>

#include "support/logging/parameter_block.h"

namespace QxLogging {

constexpr const char16_t* kLoggingRootKey = u"Software\\QV\\Qx\\Logging";

// The settings that apply to a record of `sourceFile`, refreshing the module
// first when that is due. Null when nothing applies. Caller holds the block.
const CLogSettings* SelectSettingsLocked(CLogParameterBlock& block, ModuleState& state, std::string_view sourceFile);

// Re-reads the module's settings now and recomputes its gate.
void RefreshModuleLocked(CLogParameterBlock& block, ModuleState& state);

}  // namespace QxLogging
