// Message texts for the codes the library reports. Linux has no system message
// table for these codes, so the texts the original platform gives are kept here.
#include <cstdint>
#include <string>

#include "support/resolver_utils.h"
#include "support/string_utils.h"

namespace QxUtils {

namespace {

struct MessageEntry {
  uint32_t code;
  const char* text;
};

// Texts end in a line break that FormatErrorText drops, as system messages do.
constexpr MessageEntry kMessages[] = {
    {0, "The operation completed successfully.\n"},
    {1, "Incorrect function.\n"},
    {2, "The system cannot find the file specified.\n"},
    {3, "The system cannot find the path specified.\n"},
    {5, "Access is denied.\n"},
    {6, "The handle is invalid.\n"},
    {8, "Not enough memory resources are available to process this command.\n"},
    {14, "Not enough memory resources are available to complete this operation.\n"},
    {30, "The system cannot read from the specified device.\n"},
    {87, "The parameter is incorrect.\n"},
    {122, "The data area passed to a system call is too small.\n"},
    {234, "More data is available.\n"},
    {259, "No more data is available.\n"},
    {1025, "The operation requires a secure connection.\n"},
    {1026, "The credentials were refused by the printer.\n"},
    {1280, "The job could not be set up.\n"},
    {1291, "The job could not be found.\n"},
    {1460, "This operation returned because the timeout period expired.\n"},
    {1462, "No print data was given.\n"},
    {0x80004001u, "Not implemented\n"},
    {0x80004003u, "Invalid pointer\n"},
    {0x80004005u, "Unspecified error\n"},
    {0x80020005u, "Type mismatch.\n"},
    {0x80190001u, "The HTTP request failed.\n"},
    {0x902A010Au, "The job was canceled at the device.\n"},
};

const char* Lookup(uint32_t code) {
  for (const auto& entry : kMessages) {
    if (entry.code == code) return entry.text;
  }
  // A Win32 code wrapped as a status carries the same text.
  if ((code & 0xFFFF0000u) == 0x80070000u) {
    uint32_t win32 = code & 0xFFFFu;
    for (const auto& entry : kMessages) {
      if (entry.code == win32) return entry.text;
    }
  }
  return nullptr;
}

}  // namespace

std::u16string FormatErrorText(uint32_t code) {
  constexpr size_t kMaxChars = 99;
  std::u16string text;
  try {
    const char* message = Lookup(code);
    if (message != nullptr) {
      text = Utf8ToWide(message);
      if (!text.empty()) text.pop_back();
    } else {
      text = u"Format message failed";
    }
    if (text.size() > kMaxChars) text.resize(kMaxChars);
  } catch (...) {
    text.clear();
  }
  return text;
}

}  // namespace QxUtils
