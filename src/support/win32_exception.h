// Hardware faults converted into C++ exceptions. No signal handler is installed
// on Linux; the translator exists for code that receives a fault record.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>

namespace QxUtils {

constexpr uint32_t kAccessViolation = 0xC0000005u;
constexpr uint32_t kIntegerDivideByZero = 0xC0000094u;

// The fields of a fault the translator needs.
struct FaultRecord {
  uint32_t code = 0;
  const void* address = nullptr;
  uint32_t parameterCount = 0;
  uintptr_t parameters[15] = {};
};

class CWin32Exception : public std::exception {
 public:
  CWin32Exception(uint32_t code, const void* address);
  CWin32Exception(const CWin32Exception& other);
  CWin32Exception& operator=(const CWin32Exception&) = default;
  ~CWin32Exception() override;

  const char* what() const noexcept override;
  virtual const char16_t* GetDescription() const noexcept { return description_; }
  uint32_t GetCode() const { return code_; }
  const void* GetAddress() const { return address_; }

  // Instances alive in the process; the logging marks exit records while one is.
  static int32_t LiveCount();

 private:
  const char16_t* description_;
  const void* address_;
  uint32_t code_;
};

class CAccessViolation : public CWin32Exception {
 public:
  CAccessViolation(const void* address, bool isWrite, const void* target);
  bool IsWrite() const { return isWrite_; }
  const void* GetTarget() const { return target_; }

 private:
  bool isWrite_;
  const void* target_;
};

// Throws the exception that matches the fault.
[[noreturn]] void TranslateFault(const FaultRecord& record);

}  // namespace QxUtils
