#include "support/win32_exception.h"

namespace QxUtils {

namespace {

std::atomic<int32_t> g_live{0};

const char16_t* DescriptionFor(uint32_t code) {
  switch (code) {
    case kAccessViolation:
      return u"Access violation";
    case kIntegerDivideByZero:
      return u"Division by zero";
    default:
      return u"Win32 exception";
  }
}

}  // namespace

CWin32Exception::CWin32Exception(uint32_t code, const void* address)
    : description_(DescriptionFor(code)), address_(address), code_(code) {
  g_live.fetch_add(1, std::memory_order_relaxed);
}

CWin32Exception::CWin32Exception(const CWin32Exception& other)
    : std::exception(other), description_(other.description_), address_(other.address_), code_(other.code_) {
  g_live.fetch_add(1, std::memory_order_relaxed);
}

CWin32Exception::~CWin32Exception() { g_live.fetch_sub(1, std::memory_order_relaxed); }

const char* CWin32Exception::what() const noexcept {
  switch (code_) {
    case kAccessViolation:
      return "Access violation";
    case kIntegerDivideByZero:
      return "Division by zero";
    default:
      return "Win32 exception";
  }
}

int32_t CWin32Exception::LiveCount() { return g_live.load(std::memory_order_relaxed); }

CAccessViolation::CAccessViolation(const void* address, bool isWrite, const void* target)
    : CWin32Exception(kAccessViolation, address), isWrite_(isWrite), target_(target) {}

void TranslateFault(const FaultRecord& record) {
  if (record.code == kAccessViolation) {
    bool isWrite = record.parameterCount > 0 && record.parameters[0] == 1;
    const void* target = record.parameterCount > 1 ? reinterpret_cast<const void*>(record.parameters[1]) : nullptr;
    throw CAccessViolation(record.address, isWrite, target);
  }
  throw CWin32Exception(record.code, record.address);
}

}  // namespace QxUtils
