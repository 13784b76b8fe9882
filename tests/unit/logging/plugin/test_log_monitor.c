/* A log monitor plug-in written the way a host's developer would write one in
 * plain C: five exported notifications taking length-prefixed UTF-16 text.
 * It keeps a transcript of the calls that the logging tests read back through
 * TestMonitorTranscript(). */
#include <stdint.h>
#include <string.h>

typedef uint16_t* BSTR;
typedef int32_t HRESULT;

static char transcript[65536];

/* Every notification answers S_OK once its call is in the transcript. */
static HRESULT Append(const char* what, BSTR text) {
  size_t used = strlen(transcript);
  /* The length prefix, in bytes, sits in the four bytes before the text. */
  uint32_t units = text != NULL ? ((const uint32_t*)text)[-1] / 2 : 0;
  if (used + strlen(what) + units + 2 > sizeof transcript) return 0;
  strcpy(transcript + used, what);
  used += strlen(what);
  for (uint32_t i = 0; i < units; ++i) transcript[used++] = text[i] < 0x80 ? (char)text[i] : '?';
  transcript[used++] = '\n';
  transcript[used] = '\0';
  return 0;
}

__attribute__((visibility("default"))) HRESULT MonitorStart(BSTR file, BSTR fileOrUnknown) {
  Append("start:", file);
  return Append("start2:", fileOrUnknown);
}
__attribute__((visibility("default"))) HRESULT MonitorStop(BSTR exe) { return Append("stop:", exe); }
__attribute__((visibility("default"))) HRESULT MonitorClass(BSTR name) { return Append("class:", name); }
__attribute__((visibility("default"))) HRESULT MonitorEnter(BSTR name) { return Append("enter:", name); }
__attribute__((visibility("default"))) HRESULT MonitorExit(BSTR name) { return Append("exit:", name); }

__attribute__((visibility("default"))) const char* TestMonitorTranscript(void) { return transcript; }
__attribute__((visibility("default"))) void TestMonitorReset(void) { transcript[0] = '\0'; }
