#include <gtest/gtest.h>

#include "support/win32_exception.h"

namespace {

using namespace QxUtils;

TEST(Win32Exception, AccessViolationCarriesWriteFlagAndTarget) {
  FaultRecord fault;
  fault.code = kAccessViolation;
  fault.address = reinterpret_cast<const void*>(0x1000);
  fault.parameterCount = 2;
  fault.parameters[0] = 1;
  fault.parameters[1] = 0xdead;
  try {
    TranslateFault(fault);
    FAIL();
  } catch (const CAccessViolation& e) {
    EXPECT_TRUE(e.IsWrite());
    EXPECT_EQ(e.GetTarget(), reinterpret_cast<const void*>(0xdead));
    EXPECT_EQ(e.GetAddress(), reinterpret_cast<const void*>(0x1000));
    EXPECT_EQ(std::u16string(e.GetDescription()), u"Access violation");
    EXPECT_EQ(CWin32Exception::LiveCount(), 1);
  }
  EXPECT_EQ(CWin32Exception::LiveCount(), 0);
}

TEST(Win32Exception, OtherCodesAreCatchableAsTheBaseAndStandardException) {
  FaultRecord fault;
  fault.code = kIntegerDivideByZero;
  try {
    TranslateFault(fault);
  } catch (const CAccessViolation&) {
    FAIL() << "not an access violation";
  } catch (const CWin32Exception& e) {
    EXPECT_EQ(std::u16string(e.GetDescription()), u"Division by zero");
  }
  fault.code = 0xC000001D;
  try {
    TranslateFault(fault);
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "Win32 exception");
  }
  // Copies count as live instances too.
  CWin32Exception a(1, nullptr);
  {
    CWin32Exception b(a);
    EXPECT_EQ(CWin32Exception::LiveCount(), 2);
  }
  EXPECT_EQ(CWin32Exception::LiveCount(), 1);
}

}  // namespace
