#include "providers/plsxml_provider_impl.h"

#include <new>

#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

PLSXMLProviderImpl* PLSXMLProviderImpl::Create(Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::PLSXMLProviderImpl::Create");
  // A null address is not refused here: its probe fails without reaching any
  // host object, which gives the same null.
  return KeepWhenNodeExists(new (std::nothrow) PLSXMLProviderImpl(address), kProductInformationPath, kSerialNumberXPath,
                            0);
}

}  // namespace Norvane
