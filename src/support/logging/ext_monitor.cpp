#include "support/logging/ext_monitor.h"

#include <dlfcn.h>

#include "support/string_utils.h"

namespace QxLogging {

namespace {

// A BSTR for one call; "<unknown>" stands for empty text.
class CallText {
 public:
  explicit CallText(const std::string& text) {
    std::u16string wide = text.empty() ? std::u16string(u"<unknown>") : QxUtils::Utf8ToWide(std::string_view(text));
    bstr_ = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  }
  ~CallText() { SysFreeString(bstr_); }
  CallText(const CallText&) = delete;
  CallText& operator=(const CallText&) = delete;
  BSTR get() const { return bstr_; }

 private:
  BSTR bstr_;
};

}  // namespace

CExtMonitor::~CExtMonitor() { Unload(); }

void CExtMonitor::Unload() {
  if (handle_ != nullptr) dlclose(handle_);
  handle_ = nullptr;
  start_ = nullptr;
  stop_ = class_ = enter_ = exit_ = nullptr;
}

HRESULT CExtMonitor::Send(TextFn fn, const std::string& text) {
  if (handle_ == nullptr || fn == nullptr) return kNotImplemented;
  CallText arg(text);
  if (arg.get() == nullptr) return kNotImplemented;
  return fn(arg.get());
}

void CExtMonitor::Configure(const std::string& name, uint32_t flags, bool hasFlags, const std::string& parameterFile,
                            const std::string& executableName) {
  if (name.empty()) return;
  if (hasFlags) flags_ = flags;
  if (name == lastName_) return;
  lastName_ = name;
  if (handle_ != nullptr) {
    Send(stop_, executableName);
    Unload();
  }
  void* handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return;
  auto start = reinterpret_cast<StartFn>(dlsym(handle, "MonitorStart"));
  auto stop = reinterpret_cast<TextFn>(dlsym(handle, "MonitorStop"));
  auto cls = reinterpret_cast<TextFn>(dlsym(handle, "MonitorClass"));
  auto enter = reinterpret_cast<TextFn>(dlsym(handle, "MonitorEnter"));
  auto exit = reinterpret_cast<TextFn>(dlsym(handle, "MonitorExit"));
  if (start == nullptr || stop == nullptr || cls == nullptr || enter == nullptr || exit == nullptr) {
    dlclose(handle);
    return;
  }
  // A new monitor has heard of no class yet.
  lastClass_.clear();
  handle_ = handle;
  start_ = start;
  stop_ = stop;
  class_ = cls;
  enter_ = enter;
  exit_ = exit;
  CallText file(parameterFile);
  std::u16string wide = QxUtils::Utf8ToWide(std::string_view(parameterFile));
  BSTR raw = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (raw != nullptr && file.get() != nullptr) start_(raw, file.get());
  SysFreeString(raw);
}

void CExtMonitor::Entered(const std::string& className, const std::string& displayName) {
  if (handle_ == nullptr) return;
  if (className != lastClass_) {
    lastClass_ = className;
    if (flags_ & kMonitorClass) Send(class_, className);
  }
  if (flags_ & kMonitorEnter) Send(enter_, displayName);
}

void CExtMonitor::Exited(const std::string& displayName) {
  if (flags_ & kMonitorExit) Send(exit_, displayName);
}

}  // namespace QxLogging
