#include <gtest/gtest.h>

#include "support/win32_exception.h"

namespace {

using namespace QxUtils;

TEST(Win32Exception, FaultsBecomeTheirClassWithTheirFieldsAndAreCountedWhileAlive) {
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
  // Other codes are the base class, which is a standard exception too.
  const struct {
    uint32_t code;
    const char16_t* description;
    const char* what;
  } others[] = {{kIntegerDivideByZero, u"Division by zero", "Division by zero"},
                {0xC000001D, u"Win32 exception", "Win32 exception"}};
  for (const auto& c : others) {
    fault.code = c.code;
    try {
      TranslateFault(fault);
    } catch (const CAccessViolation&) {
      ADD_FAILURE() << "not an access violation";
    } catch (const CWin32Exception& e) {
      EXPECT_EQ(std::u16string(e.GetDescription()), c.description);
      EXPECT_STREQ(static_cast<const std::exception&>(e).what(), c.what);
    }
  }
  CWin32Exception a(1, nullptr);
  {
    CWin32Exception b(a);  // copies count as live instances too
    EXPECT_EQ(CWin32Exception::LiveCount(), 2);
  }
  EXPECT_EQ(CWin32Exception::LiveCount(), 1);
}

}  // namespace
