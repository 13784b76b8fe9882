#include "support/win32_exception.h"

#include <gtest/gtest.h>

#include "support/string_utils.h"

namespace {

using namespace QxUtils;

TEST(Win32Exception, FaultsBecomeTheirClassWithTheirFieldsAndAreCountedWhileAlive) {
  const struct {
    uint32_t code;
    const char* text;
  } cases[] = {{kAccessViolation, "Access violation"},
               {kIntegerDivideByZero, "Division by zero"},
               {0xC000001D, "Win32 exception"}};
  for (const auto& c : cases) {
    FaultRecord fault;
    fault.code = c.code;
    fault.address = reinterpret_cast<const void*>(0x1000);
    fault.parameterCount = 2;
    fault.parameters[0] = 1;
    fault.parameters[1] = 0xdead;
    try {
      TranslateFault(fault);
    } catch (const CWin32Exception& e) {
      EXPECT_EQ(WideToUtf8(e.GetDescription()), c.text);
      EXPECT_STREQ(e.what(), c.text);
      EXPECT_EQ(e.GetAddress(), fault.address);
      EXPECT_EQ(CWin32Exception::LiveCount(), 1);
      // Only an access violation is its own class, with the fault's access.
      auto* violation = dynamic_cast<const CAccessViolation*>(&e);
      ASSERT_EQ(violation != nullptr, c.code == kAccessViolation) << c.text;
      EXPECT_TRUE(!violation ||
                  (violation->IsWrite() && violation->GetTarget() == reinterpret_cast<const void*>(0xdead)));
    }
  }
  EXPECT_EQ(CWin32Exception::LiveCount(), 0);
  CWin32Exception a(1, nullptr), b(a);  // copies count as live instances too
  EXPECT_EQ(CWin32Exception::LiveCount(), 2);
}

}  // namespace
