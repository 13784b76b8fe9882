#include "platform/xml_errors.h"

#include <libxml/globals.h>
#include <libxml/parser.h>

#include <mutex>

namespace Norvane::Xml {

namespace {

void IgnoreGenericError(void*, const char*, ...) {}

}  // namespace

void IgnoreStructuredError(void*, xmlErrorPtr) {}

SilentErrors::SilentErrors()
    : structured_(xmlStructuredError),
      structuredContext_(xmlStructuredErrorContext),
      generic_(xmlGenericError),
      genericContext_(xmlGenericErrorContext) {
  xmlSetStructuredErrorFunc(nullptr, &IgnoreStructuredError);
  xmlSetGenericErrorFunc(nullptr, &IgnoreGenericError);
}

SilentErrors::~SilentErrors() {
  xmlSetStructuredErrorFunc(structuredContext_, structured_);
  xmlSetGenericErrorFunc(genericContext_, generic_);
}

void EnsureXmlInitialized() {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
}

}  // namespace Norvane::Xml
