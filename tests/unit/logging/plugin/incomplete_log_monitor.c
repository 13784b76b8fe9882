/* A plug-in that lacks MonitorExit: the library must refuse it. */
#include <stdint.h>

__attribute__((visibility("default"))) int32_t MonitorStart(uint16_t* a, uint16_t* b) { return a == b; }
__attribute__((visibility("default"))) int32_t MonitorStop(uint16_t* a) { return a == 0; }
__attribute__((visibility("default"))) int32_t MonitorClass(uint16_t* a) { return a == 0; }
__attribute__((visibility("default"))) int32_t MonitorEnter(uint16_t* a) { return a == 0; }
