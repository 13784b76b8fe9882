// The external monitor: a plug-in shared object, named by the "ExtMonitorCLSID"
// value (a path, or a name dlopen finds), told about class changes and
// function entries and exits. It exports five C functions, each taking
// length-prefixed UTF-16 text (BSTR, see norvane/platform.h) and returning a
// status the library ignores:
//
//   HRESULT MonitorStart(BSTR parameterFile, BSTR parameterFileOrUnknown);
//   HRESULT MonitorStop(BSTR executableName);
//   HRESULT MonitorClass(BSTR className);
//   HRESULT MonitorEnter(BSTR displayName);
//   HRESULT MonitorExit(BSTR displayName);
//
// Empty texts are sent as "<unknown>". A plug-in lacking any of the five is
// not loaded. The BSTRs are freed when the call returns.
#pragma once

#include <cstdint>
#include <string>

#include "norvane/platform.h"

namespace QxLogging {

enum : uint32_t { kMonitorClass = 1, kMonitorEnter = 2, kMonitorExit = 4 };
constexpr HRESULT kNotImplemented = static_cast<HRESULT>(0x80004001u);

class CExtMonitor {
 public:
  CExtMonitor() = default;
  ~CExtMonitor();
  CExtMonitor(const CExtMonitor&) = delete;
  CExtMonitor& operator=(const CExtMonitor&) = delete;

  // Applies the executable key's monitor values: a changed name stops the
  // current plug-in (MonitorStop with executableName), unloads it and loads
  // the new one, which gets MonitorStart with parameterFile. An empty name
  // changes nothing.
  void Configure(const std::string& name, uint32_t flags, bool hasFlags, const std::string& parameterFile,
                 const std::string& executableName);

  bool Loaded() const { return handle_ != nullptr; }
  uint32_t Flags() const { return flags_; }

  // At a function entry: MonitorClass when the class differs from the last one
  // (and flag 1), then MonitorEnter (flag 2).
  void Entered(const std::string& className, const std::string& displayName);
  // At a function exit (flag 4).
  void Exited(const std::string& displayName);

 private:
  using TextFn = HRESULT (*)(BSTR);
  using StartFn = HRESULT (*)(BSTR, BSTR);

  HRESULT Send(TextFn fn, const std::string& text);
  void Unload();

  std::string lastName_;
  std::string lastClass_;
  uint32_t flags_ = 0;
  void* handle_ = nullptr;
  StartFn start_ = nullptr;
  TextFn stop_ = nullptr;
  TextFn class_ = nullptr;
  TextFn enter_ = nullptr;
  TextFn exit_ = nullptr;
};

}  // namespace QxLogging
