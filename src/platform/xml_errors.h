// Keeps libxml2's diagnostics off stderr for the duration of one parse or query.
// libxml2 reports most errors through the parser or XPath context, which get
// their own silent handler; the few raised without a context go to the thread's
// handlers, which this guard replaces and then restores. The handlers are
// per-thread in libxml2, so other threads and the host are unaffected.
#pragma once

#include <libxml/xmlerror.h>

namespace Norvane::Xml {

void IgnoreStructuredError(void* userData, xmlErrorPtr error);

class SilentErrors {
 public:
  SilentErrors();
  ~SilentErrors();
  SilentErrors(const SilentErrors&) = delete;
  SilentErrors& operator=(const SilentErrors&) = delete;

 private:
  xmlStructuredErrorFunc structured_;
  void* structuredContext_;
  xmlGenericErrorFunc generic_;
  void* genericContext_;
};

// libxml2 wants one initialisation per process before the first parse.
void EnsureXmlInitialized();

}  // namespace Norvane::Xml
