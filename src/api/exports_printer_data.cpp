// Printer handles for the printer-data cache: the stand-in for a spooler handle.
#include "norvane/api.h"
#include "platform/printer_data.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" uintptr_t OpenPrinterDataHandle(const char16_t* printerName) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OpenPrinterDataHandle");
  uintptr_t handle = Norvane::PrinterData::OpenHandle(printerName);
  if (handle == 0) SetLastError(ERROR_INVALID_PARAMETER);
  return handle;
}

extern "C" void ClosePrinterDataHandle(uintptr_t handle) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::ClosePrinterDataHandle");
  Norvane::PrinterData::CloseHandle(handle);
}
