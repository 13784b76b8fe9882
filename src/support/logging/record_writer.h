// The configured writer behind every logging module: filters a record by the
// settings that apply to its source file, lays out the line and sends it to
// the log file, the debugger output (standard error) and the external
// monitor. Nothing here throws or reports a failure to the caller.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace QxLogging {

class CLogModule;
struct LogRecord;

// Registers a module with the process-wide parameter block; until its first
// record finds settings, the module's gate lets every record through once.
void AttachConfiguredWriter(CLogModule* module, const std::string& builtOn);
void DetachConfiguredWriter(CLogModule* module);

// Whether the configured settings would write a record of this category from
// this source file. Refreshes the settings when due.
bool ConfiguredWants(const CLogModule* module, std::string_view sourceFile, uint32_t category);
void ConfiguredWrite(const CLogModule* module, const LogRecord& record);

// Makes every module re-read its settings at its next record (the poll
// interval does this by itself).
void RefreshLogSettings();
// The interval between settings refreshes, from "LogParmsPollTime".
uint32_t LogPollIntervalMs();

}  // namespace QxLogging
